// Objects with all that a real store keeps of them.
#include "kx/streams/CBufferStream.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/S3Session.h"
#include "tests/support/errorOf.h"

#include <functional>
#include <string>

namespace {

using norla::CS3Checksum;
using norla::CS3Client;
using norla::CS3GetOptions;
using norla::CS3ObjectInfo;
using norla::CS3PutOptions;

class S3ObjectsTest : public live::S3Session {
protected:
    S3ObjectsTest() { m_endpointClient->setMaxRetries(0); }

    norla::CS3Objects& objects() { return *m_objects; }

    std::string fetch(const kx::String& key, const CS3GetOptions& options = {})
    {
        const auto bytes = kx::newObj<CS3Client::Buffer>();
        m_info = objects().get(m_bucket, key, bytes.get(), options);
        return {reinterpret_cast<const char*>(bytes->getData()), bytes->getSize()};
    }

    std::string codeOf(const std::function<void()>& action)
    {
        const auto error = support::errorOf(action);
        return error ? error->getProps().get("s3-code").toUTF8() : "(no error)";
    }

    void switchOnVersions()
    {
        norla::CS3Call call;
        call.method = "PUT";
        call.bucketName = m_bucket;
        call.parameters = {{"versioning", ""}};
        call.body = "<VersioningConfiguration xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
                    "<Status>Enabled</Status></VersioningConfiguration>";
        m_endpointClient->performCall(request(), call);
    }

    CS3ObjectInfo m_info; // of the last fetch()

private:
    static norla::CS3Endpoint endpoint() { return norla::CS3Endpoint::ceph(live::text(store().host()), false); }
    static kx::P<norla::IS3Credentials> credentials()
    {
        return kx::newObj<norla::CS3StaticCredentials>(
            norla::CS3Credentials{.accessKeyId = live::text(store().accessKeyId()),
                .secretAccessKey = live::text(store().secretAccessKey()),
                .sessionToken = {},
                .expiry = {}});
    }

    const kx::P<CS3Client> m_endpointClient = kx::newObj<CS3Client>(endpoint(), credentials().get());
    const kx::P<norla::CS3Objects> m_objects = kx::newObj<norla::CS3Objects>(m_endpointClient.get(), &request());
};

TEST_F(S3ObjectsTest, givesBackWhatAnObjectWasStoredWith)
{
    const kx::TMap<kx::String, kx::String> metadata{{"plain", "a  b"}, {"zoe", L"Zo\xEB \x1F600"}, {"blanks", " x "},
        {"word", "=?UTF-8?B?YQ==?="}, {"long", kx::String(std::wstring(200, L'\xE4'))}};
    const kx::CTime expires(1255369830LL * 1'000'000);
    const CS3ObjectInfo stored = objects().put(m_bucket, "a/b", "content",
        {.contentType = "text/plain; charset=utf-8",
            .cacheControl = "max-age=5",
            .contentDisposition = "attachment; filename=\"a\"",
            .contentEncoding = "identity",
            .contentLanguage = "de",
            .expires = expires,
            .metadata = metadata,
            .tags = {{"a b", "c&d"}}});
    EXPECT_EQ(fetch("a/b"), "content");
    EXPECT_EQ(m_info.size, 7);
    EXPECT_EQ(m_info.eTag, stored.eTag);
    EXPECT_EQ(m_info.contentType, "text/plain; charset=utf-8");
    EXPECT_EQ(m_info.cacheControl, "max-age=5");
    EXPECT_EQ(m_info.contentDisposition, "attachment; filename=\"a\"");
    EXPECT_EQ(m_info.contentEncoding, "identity");
    EXPECT_EQ(m_info.contentLanguage, "de");
    EXPECT_EQ(m_info.expires, expires);
    EXPECT_EQ(m_info.metadata, metadata);
    EXPECT_TRUE(m_info.lastModified.isSet());
    const CS3ObjectInfo known = objects().head(m_bucket, "a/b");
    EXPECT_EQ(known.size, 7);
    EXPECT_EQ(known.metadata, metadata);
    EXPECT_EQ(objects().getTags(m_bucket, "a/b"), (norla::CS3Objects::Tags{{"a b", "c&d"}}));
}

TEST_F(S3ObjectsTest, storesASourceWithEveryChecksum)
{
    const std::string content(3'000'000, 'x');
    const auto buffer = kx::newObj<CS3Client::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(content.data()), content.size());
    for (const CS3Checksum checksum : {CS3Checksum::None, CS3Checksum::MD5, CS3Checksum::SHA256, CS3Checksum::CRC32C}) {
        const auto source
            = kx::newObj<norla::CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(buffer).get());
        EXPECT_EQ(objects()
                      .put(m_bucket, "k", source.get(), 3'000'000, {.contentEncoding = "x-none", .checksum = checksum})
                      .size,
            3'000'000);
        EXPECT_EQ(fetch("k"), content);
        EXPECT_EQ(m_info.contentEncoding, "x-none");
    }
}

TEST_F(S3ObjectsTest, knowsTheETagOfAnEmptyObject)
{
    objects().put(m_bucket, "empty", "");
    EXPECT_EQ(fetch("empty"), "");
    EXPECT_EQ(m_info.size, 0);
    EXPECT_EQ(m_info.eTag, "\"d41d8cd98f00b204e9800998ecf8427e\"");
}

TEST_F(S3ObjectsTest, fetchesParts)
{
    objects().put(m_bucket, "k", "0123456789");
    EXPECT_EQ(fetch("k", {.start = 3, .length = 2}), "34");
    EXPECT_EQ(m_info.size, 10);
    EXPECT_EQ(fetch("k", {.start = 8}), "89");
    EXPECT_EQ(fetch("k", {.start = 8, .length = 9}), "89");
    EXPECT_EQ(fetch("k", {.start = 0, .length = 10}), "0123456789");
    EXPECT_EQ(codeOf([this] { fetch("k", {.start = 10}); }), "InvalidRange");
    EXPECT_EQ(fetch("k"), "0123456789");
}

TEST_F(S3ObjectsTest, keepsConditions)
{
    const kx::String eTag = objects().put(m_bucket, "k", "1").eTag;
    EXPECT_EQ(fetch("k", {.conditions = {.ifMatch = eTag}}), "1");
    EXPECT_EQ(codeOf([&] { fetch("k", {.conditions = {.ifNoneMatch = eTag}}); }), "NotModified");
    EXPECT_EQ(codeOf([&] { fetch("k", {.conditions = {.ifMatch = "\"other\""}}); }), "PreconditionFailed");
    EXPECT_EQ(codeOf([&] { fetch("k", {.conditions = {.ifUnmodifiedSince = kx::CTime(0)}}); }), "PreconditionFailed");
    EXPECT_EQ(fetch("k", {.conditions = {.ifModifiedSince = kx::CTime(0)}}), "1");
}

TEST_F(S3ObjectsTest, replacesNothingThatIsNotAsItWasThought)
{
    const kx::String eTag = objects().put(m_bucket, "k", "1", {.ifNoneMatch = "*"}).eTag;
    EXPECT_EQ(codeOf([this] { objects().put(m_bucket, "k", "2", {.ifNoneMatch = "*"}); }), "PreconditionFailed");
    EXPECT_EQ(codeOf([this] { objects().put(m_bucket, "k", "2", {.ifMatch = "\"other\""}); }), "PreconditionFailed");
    EXPECT_EQ(fetch("k"), "1");
    objects().put(m_bucket, "k", "2", {.ifMatch = eTag.replaceAll("\"", "")}); // as this store writes it
    EXPECT_EQ(fetch("k"), "2");
}

TEST_F(S3ObjectsTest, copiesBetweenBucketsWithOrWithoutTheirMetadata)
{
    const kx::String other = m_bucket + "-other";
    store().makeBucket(other.toUTF8());
    objects().put(m_bucket, "a b", "content", {.contentType = "text/plain", .metadata = {{"a", L"\xE4"}}});
    const CS3ObjectInfo copy = objects().copy(m_bucket, "a b", other, "c/d");
    EXPECT_EQ(copy.eTag.replaceAll("\"", ""), "9a0364b9e99bb480dd25e1f0284c8555");
    EXPECT_TRUE(copy.lastModified.isSet());
    EXPECT_EQ(objects().head(other, "c/d").metadata.at("a"), L"\xE4");
    objects().copy(m_bucket, "a b", other, "c/d",
        {.replaceMetadata = true, .target = {.contentType = "image/png", .metadata = {{"b", L"\xF6"}}}});
    const CS3ObjectInfo known = objects().head(other, "c/d");
    EXPECT_EQ(known.contentType, "image/png");
    EXPECT_EQ(known.metadata, (kx::TMap<kx::String, kx::String>{{"b", L"\xF6"}}));
    EXPECT_EQ(codeOf([&] { objects().copy(m_bucket, "none", other, "e"); }), "NoSuchKey");
}

TEST_F(S3ObjectsTest, keepsVersions)
{
    switchOnVersions();
    const kx::String first = objects().put(m_bucket, "k", "1").versionId;
    const kx::String second = objects().put(m_bucket, "k", "2").versionId;
    ASSERT_NE(first, second);
    EXPECT_EQ(fetch("k", {.versionId = first}), "1");
    EXPECT_EQ(m_info.versionId, first);
    EXPECT_EQ(fetch("k"), "2");
    EXPECT_EQ(objects().head(m_bucket, "k", {.versionId = first}).eTag, "\"c4ca4238a0b923820dcc509a6f75849b\"");
    objects().copy(m_bucket, "k", m_bucket, "l", {.sourceVersionId = first});
    EXPECT_EQ(fetch("l"), "1");
    const CS3ObjectInfo marker = objects().remove(m_bucket, "k");
    EXPECT_TRUE(marker.isDeleteMarker);
    EXPECT_EQ(codeOf([this] { fetch("k"); }), "NoSuchKey");
    objects().remove(m_bucket, "k", marker.versionId);
    EXPECT_EQ(fetch("k"), "2");
    objects().remove(m_bucket, "k", second);
    EXPECT_EQ(fetch("k"), "1");
}

TEST_F(S3ObjectsTest, keepsTags)
{
    objects().put(m_bucket, "k", "1");
    EXPECT_EQ(objects().getTags(m_bucket, "k"), norla::CS3Objects::Tags());
    const norla::CS3Objects::Tags tags{{"a", "1"}, {L"\xE4 & <b>", ""}};
    objects().setTags(m_bucket, "k", tags);
    EXPECT_EQ(objects().getTags(m_bucket, "k"), tags);
    objects().removeTags(m_bucket, "k");
    EXPECT_EQ(objects().getTags(m_bucket, "k"), norla::CS3Objects::Tags());
}

TEST_F(S3ObjectsTest, needsNoEndpointForWhatNamesNoVersion)
{
    norla::CS3Objects simple(&client(), &request());
    const kx::TMap<kx::String, kx::String> metadata{{"a", L"\xE4"}};
    simple.put(m_bucket, "a b", "content", {.metadata = metadata, .tags = {{"t", "u"}}});
    EXPECT_EQ(simple.head(m_bucket, "a b").metadata, metadata);
    EXPECT_EQ(simple.getTags(m_bucket, "a b").at("t"), "u");
    simple.setTags(m_bucket, "a b", {{"v", "w"}});
    simple.copy(m_bucket, "a b", m_bucket, "c");
    simple.remove(m_bucket, "a b");
    EXPECT_EQ(fetch("c"), "content");
}

TEST_F(S3ObjectsTest, removesWhatIsNotThere)
{
    objects().remove(m_bucket, "none");
    EXPECT_EQ(codeOf([this] { objects().head(m_bucket, "none"); }), "NoSuchKey");
}

TEST_F(S3ObjectsTest, isRefusedBytesThatAreNotThoseOfTheirMD5)
{
    EXPECT_EQ(codeOf([this] {
        objects().put(m_bucket, "k", "abc",
            {.checksum = CS3Checksum::None, .headers = {{"Content-MD5", "1B2M2Y8AsgTpgAmY7PhCfg=="}}});
    }),
        "BadDigest");
}

} // namespace
