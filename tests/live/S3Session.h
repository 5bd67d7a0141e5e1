#pragma once

#include "norla/s3/CS3Client.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CCephServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace live {

inline kx::String text(const std::string& ascii)
{
    return kx::String::fromLatin1(ascii);
}

inline kx::P<norla::CS3Client> clientFor(const support::CCephServer& store)
{
    return kx::newObj<norla::CS3Client>(
        text(store.accessKeyId()), text(store.secretAccessKey()), false, text(store.host()));
}

/// Every test has a bucket of its own, in a store that all share.
class S3Session : public testing::Test {
protected:
    static void SetUpTestSuite() { s_store = std::make_unique<support::CCephServer>(); }
    static void TearDownTestSuite() { s_store.reset(); }

    S3Session()
        : m_bucket("bucket-" + text(std::to_string(++s_bucketCount)))
    {
        store().makeBucket(m_bucket.toUTF8());
    }

    static support::CCephServer& store() { return *s_store; }
    norla::CS3Client& client() { return *m_client; }
    norla::CNetRequest& request() { return *m_request; }

    void put(const kx::String& key, const std::string& content, const kx::String& type = "")
    {
        client().putObject(request(), m_bucket, key, content.data(), static_cast<int>(content.size()), type);
    }

    std::string get(const kx::String& key, long long start = 0, long long length = -1)
    {
        client().getObject(request(), m_bucket, key, start, length);
        return bodyOf(request());
    }

    std::vector<kx::String> keysOf(
        const kx::String& prefix, const kx::String& delimiter = "", const kx::String& marker = "", int maxKeys = -1)
    {
        std::vector<kx::String> keys;
        const auto page = client().listObjects(request(), m_bucket, prefix, delimiter, marker, maxKeys);
        for (const auto& object : page->getContents())
            keys.push_back(object->getKey());
        return keys;
    }

    using Keys = std::vector<kx::String>;

    const kx::String m_bucket;

private:
    static inline std::unique_ptr<support::CCephServer> s_store;
    static inline int s_bucketCount = 0;
    kx::P<norla::CS3Client> m_client = clientFor(store());
    kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

} // namespace live
