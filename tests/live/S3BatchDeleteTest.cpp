// Many objects removed at once in a real store.
#include "norla/s3/CS3BatchDelete.h"
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3VersionEnum.h"
#include "tests/live/S3EndpointSession.h"

#include <string>
#include <vector>

namespace {

class S3BatchDeleteTest : public live::S3EndpointSession {
protected:
    kx::P<norla::CS3BatchDelete> remover()
    {
        return kx::newObj<norla::CS3BatchDelete>(&client(), &request(), m_bucket);
    }

    bool isEmpty() { return !kx::newObj<norla::CS3ObjectListing>(&client(), &request(), m_bucket)->next(); }
};

TEST_F(S3BatchDeleteTest, removesObjectsOfAnyName)
{
    const std::vector<kx::String> keys{"\x01", " a ", "a\r\nb", "a\tb", "a\rb", "<a>&amp;\"'", "%2B+", "a/b//c", ".",
        "..", "\x7f", kx::String::fromUTF8("\xC3\xA4\xF0\x9F\x98\x80")};
    const auto removal = remover();
    for (const kx::String& key : keys) {
        put(key, "1");
        removal->add(key);
    }
    removal->add("missing");
    removal->finish();
    for (const norla::CS3DeleteFailure& failure : removal->getFailures())
        ADD_FAILURE() << failure.key << ": " << failure.code;
    EXPECT_EQ(removal->getRemovedCount(), static_cast<long long>(keys.size()) + 1);
    EXPECT_TRUE(isEmpty());
}

TEST_F(S3BatchDeleteTest, removesAnyNumberOfNamesOfAnyLength)
{
    const auto removal = remover();
    for (int i = 0; i < 1500; ++i) {
        const std::string number = std::to_string(i);
        removal->add(live::text(number + std::string(1024 - number.size(), '<')));
    }
    removal->finish();
    EXPECT_EQ(removal->getRemovedCount(), 1500);
}

TEST_F(S3BatchDeleteTest, removesWhatAListGives)
{
    for (const char* const key : {"a", "b", "c", "d", "e"})
        put(live::text(key), "1");
    const auto removal = remover();
    const auto list = kx::newObj<norla::CS3ObjectListing>(
        &client(), &request(), m_bucket, norla::CS3ListOptions{.prefix = {}, .startAfter = {}, .maxKeys = 2});
    while (list->next()) {
        removal->add(list->getCurrent()->key);
        removal->finish();
    }
    EXPECT_TRUE(isEmpty());
}

TEST_F(S3BatchDeleteTest, removesVersionsForEver)
{
    const auto buckets = kx::newObj<norla::CS3Buckets>(&client(), &request());
    buckets->setVersioning(m_bucket, norla::CS3Buckets::Versioning::Enabled);
    for (const char* const key : {"a", "a", "b", "b\x01", "b\x01"})
        put(live::text(key), "1");
    client().deleteObject(request(), m_bucket, "a");
    const auto removal = remover();
    const auto list = kx::newObj<norla::CS3VersionEnum>(&client(), &request(), m_bucket);
    while (list->next())
        removal->add(list->getCurrent()->key, list->getCurrent()->versionId);
    removal->finish();
    EXPECT_TRUE(removal->getFailures().empty());
    EXPECT_FALSE(kx::newObj<norla::CS3VersionEnum>(&client(), &request(), m_bucket)->next());
    buckets->remove(m_bucket);
    EXPECT_FALSE(buckets->exists(m_bucket));
}

TEST_F(S3BatchDeleteTest, isToldWhatItMayNotRemove)
{
    put("a", "1");
    const auto other = clientOf(store().otherAccessKeyId(), store().otherSecretAccessKey());
    const auto removal = kx::newObj<norla::CS3BatchDelete>(other.get(), &request(), m_bucket);
    removal->add("a");
    try {
        removal->finish(); // a store may refuse the request as a whole
        EXPECT_EQ(removal->getFailures().size(), 1U);
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getProps().get("s3-code"), "AccessDenied");
    }
    EXPECT_FALSE(isEmpty());
}

} // namespace
