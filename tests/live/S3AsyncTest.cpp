// Signed requests of the S3 client, run in the background.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/s3/CS3Client.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CCephServer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(S3AsyncTest, fetchesManyObjectsAtOnce)
{
    support::CCephServer store;
    store.makeBucket("bucket");
    norla::CS3Client client(kx::String::fromLatin1(store.accessKeyId()),
        kx::String::fromLatin1(store.secretAccessKey()), false, kx::String::fromLatin1(store.host()));
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>(nullptr);
    const auto contentOf = [](size_t index) { return "object " + std::to_string(index); };
    const auto keyOf = [](size_t index) { return kx::String::fromLatin1("key/" + std::to_string(index)); };
    std::vector<kx::P<norla::CNetRequest>> requests;
    for (size_t i = 0; i < 16; ++i) {
        requests.push_back(kx::newObj<norla::CNetRequest>());
        const std::string content = contentOf(i);
        client.putObject(*requests[i], "bucket", keyOf(i), content.data(), static_cast<int>(content.size()), "");
        client.prepareGetObjectRequest(*requests[i], "bucket", keyOf(i), 0, -1);
        thread->addRequest(requests[i].get());
    }
    const auto missing = kx::newObj<norla::CNetRequest>();
    client.prepareGetObjectRequest(*missing, "bucket", "missing", 0, -1);
    thread->addRequest(missing.get());
    thread->start();
    for (size_t i = 0; i < requests.size(); ++i) {
        ASSERT_TRUE(requests[i]->waitAsyncDone(30'000));
        EXPECT_NO_THROW(requests[i]->checkAsyncResult());
        EXPECT_EQ(live::bodyOf(*requests[i]), contentOf(i));
    }
    ASSERT_TRUE(missing->waitAsyncDone(30'000));
    EXPECT_THROW(missing->checkAsyncResult(), norla::CCURLError);
    EXPECT_EQ(missing->getResponseCode(), 404);
}

} // namespace
