// Objects that are removed, copied and tagged.
#include "kx/base/CInvalidArgError.h"
#include "tests/norla/s3/CS3ObjectsFixture.h"

namespace {

using norla::CS3CopyOptions;
using testing::HasSubstr;

class CS3ObjectsTest : public CS3ObjectsFixture {
protected:
    norla::CS3ObjectInfo copy(const CS3CopyOptions& options = {})
    {
        return objects().copy("from", "a b/c", "b", "k", options);
    }
    std::string messageOfCopy(const std::string& body)
    {
        answer(reply("200 OK", "", body));
        return support::messageOf([this] { copy(); }).toUTF8();
    }
    std::string messageOfTags(const std::string& body)
    {
        answer(reply("200 OK", "", body));
        return support::messageOf([this] { objects().getTags("b", "k"); }).toUTF8();
    }

    static constexpr char copied[] = "<CopyObjectResult><LastModified>2009-10-12T17:50:30.000Z</LastModified>"
                                     "<ETag>&quot;e&quot;</ETag></CopyObjectResult>";
};

TEST_F(CS3ObjectsTest, removesAnObjectAndKnowsWhatMarksIt)
{
    answer("HTTP/1.1 204 No Content\r\nConnection: close\r\nx-amz-version-id: m\r\nx-amz-delete-marker: true\r\n\r\n");
    const auto info = objects().remove("b", "k");
    EXPECT_EQ(requestLine(), "DELETE /b/k HTTP/1.1");
    EXPECT_EQ(info.versionId, "m");
    EXPECT_TRUE(info.isDeleteMarker);
}

TEST_F(CS3ObjectsTest, removesAVersion)
{
    answer(reply("204 No Content", ""));
    objects().remove("b", "k", "v 1");
    EXPECT_EQ(requestLine(), "DELETE /b/k?versionId=v%201 HTTP/1.1");
}

TEST_F(CS3ObjectsTest, copiesBetweenBuckets)
{
    answer(reply("200 OK", "x-amz-version-id: v2\r\n", copied));
    const auto info = copy();
    EXPECT_EQ(requestLine(), "PUT /b/k HTTP/1.1");
    EXPECT_TRUE(hasSent("x-amz-copy-source: /from/a%20b%2Fc"));
    EXPECT_TRUE(hasSent("Content-Length: 0"));
    EXPECT_EQ(info.eTag, "\"e\"");
    EXPECT_EQ(info.versionId, "v2");
    EXPECT_EQ(info.lastModified, kx::CTime(1255369830LL * 1'000'000));
}

TEST_F(CS3ObjectsTest, copiesAVersionWithNewMetadataOnConditions)
{
    answer(reply("200 OK", "", copied));
    copy({.sourceVersionId = "v/1",
        .sourceConditions = {.ifMatch = "\"a\"",
            .ifNoneMatch = "\"b\"",
            .ifModifiedSince = kx::CTime(1255369830LL * 1'000'000),
            .ifUnmodifiedSince = kx::CTime(1255369831LL * 1'000'000)},
        .replaceMetadata = true,
        .replaceTags = true,
        .target = {.contentType = "text/plain",
            .metadata = {{"a", "b"}},
            .storageClass = "STANDARD",
            .cannedACL = "private",
            .encryption = {.algorithm = "AES256"},
            .tags = {{"t", "u"}},
            .checksum = norla::CS3Checksum::SHA256}});
    for (const char* const line : {"x-amz-copy-source: /from/a%20b%2Fc?versionId=v%2F1",
             "x-amz-copy-source-if-match: \"a\"", "x-amz-copy-source-if-none-match: \"b\"",
             "x-amz-copy-source-if-modified-since: Mon, 12 Oct 2009 17:50:30 GMT",
             "x-amz-copy-source-if-unmodified-since: Mon, 12 Oct 2009 17:50:31 GMT",
             "x-amz-metadata-directive: REPLACE", "Content-Type: text/plain", "x-amz-meta-a: b",
             "x-amz-tagging-directive: REPLACE", "x-amz-tagging: t=u", "x-amz-storage-class: STANDARD",
             "x-amz-acl: private", "x-amz-server-side-encryption: AES256", "x-amz-checksum-algorithm: SHA256"})
        EXPECT_TRUE(hasSent(line)) << line << " in " << received();
}

TEST_F(CS3ObjectsTest, namesTheSourceOfACopyThatIsNotThere)
{
    const auto nameIn = [this](const char* document) {
        answer(reply("404 Not Found", "", document));
        const auto error = support::errorOf([this] { copy({.sourceVersionId = "v"}); });
        return error ? error->getProps().get("s3-resource") : kx::String("(no error)");
    };
    EXPECT_EQ(nameIn("<Error><Code>NoSuchKey</Code></Error>"), "/from/a b/c");
    EXPECT_EQ(nameIn("<Error><Code>NoSuchKey</Code><Resource>/its/word</Resource></Error>"), "/its/word");
    EXPECT_EQ(nameIn("<Error><Code>NoSuchBucket</Code></Error>"), ""); // of either
}

TEST_F(CS3ObjectsTest, takesAFailureBehindASuccessForWhatItIs)
{
    answer(reply("200 OK", "", " \r\n " + errorDocument("InternalError")));
    const auto error = support::errorOf([this] { copy(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
    EXPECT_EQ(error->getCode(), 0);
    EXPECT_EQ(messageOfCopy(std::string(" \n") + copied), "(no error)");
}

TEST_F(CS3ObjectsTest, namesACopyWhoseAnswerIsNone)
{
    const std::string start = "The store's answer to the copy to the object 'k' in the bucket 'b' is none: ";
    EXPECT_THAT(messageOfCopy(""), testing::StartsWith(start));
    EXPECT_EQ(messageOfCopy(std::string(" ") + copied + std::string(1 << 20, ' ')), start + "it has 1048692 bytes.");
    EXPECT_THAT(messageOfCopy("<html/>"), HasSubstr("unknown root element 'html'"));
}

TEST_F(CS3ObjectsTest, refusesACopyWhoseOptionsWouldBeWithoutEffect)
{
    EXPECT_THROW(copy({.target = {.contentType = "a/b"}}), kx::CInvalidArgError);
    EXPECT_THROW(copy({.target = {.expires = kx::CTime(0)}}), kx::CInvalidArgError);
    EXPECT_THROW(copy({.target = {.metadata = {{"a", "b"}}}}), kx::CInvalidArgError);
    EXPECT_THROW(copy({.target = {.tags = {{"a", "b"}}}}), kx::CInvalidArgError);
    EXPECT_THROW(copy({.target = {.checksum = norla::CS3Checksum::MD5}}), kx::CInvalidArgError);
    EXPECT_THROW(objects().copy("", "k", "b", "k"), kx::CInvalidArgError);
    EXPECT_THROW(objects().copy("b", "", "b", "k"), kx::CInvalidArgError);
    EXPECT_THROW(objects().copy("b", "k", "b", ""), kx::CInvalidArgError);
}

TEST_F(CS3ObjectsTest, readsTags)
{
    answer(reply("200 OK", "",
        "<?xml version=\"1.0\"?><Tagging xmlns=\"x\"><TagSet><Tag><Key>a&amp;b</Key><Value>c d</Value></Tag>"
        "<Tag><Key>e</Key><Value/></Tag></TagSet></Tagging>"));
    EXPECT_EQ(objects().getTags("b", "k", "v"), (norla::CS3Objects::Tags{{"a&b", "c d"}, {"e", ""}}));
    EXPECT_EQ(requestLine(), "GET /b/k?tagging&versionId=v HTTP/1.1");
}

TEST_F(CS3ObjectsTest, readsNoTagsOutOfSomethingElse)
{
    EXPECT_EQ(messageOfTags("<Other/>"), "Error parsing Amazon S3 tags: unknown root element 'Other'.");
    EXPECT_EQ(messageOfTags("<Tagging><TagSet><Tag><Value>v</Value></Tag></TagSet></Tagging>"),
        "A tag of the object 'k' in the bucket 'b' has no name in the store's answer; its value is 'v'.");
    EXPECT_EQ(messageOfTags("<Tagging><TagSet><Tag><Key>a</Key></Tag><Tag><Key>a</Key></Tag></TagSet></Tagging>"),
        "The tag 'a' of the object 'k' in the bucket 'b' is in the store's answer twice.");
    EXPECT_EQ(messageOfTags(""), "Error parsing Amazon S3 tags: invalid XML.");
}

TEST_F(CS3ObjectsTest, setsTags)
{
    const std::string document
        = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          "<Tagging xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><TagSet><Tag><Key>&lt;a&gt;"
          "</Key><Value>b&amp;c</Value></Tag></TagSet></Tagging>";
    answerBody(static_cast<int>(document.size()), reply("200 OK", ""));
    objects().setTags("b", "k", {{"<a>", "b&c"}});
    EXPECT_EQ(requestLine(), "PUT /b/k?tagging HTTP/1.1");
    EXPECT_EQ(sentBody(), document);
    EXPECT_TRUE(hasSent("Content-MD5: kRbh1oNA8ieS7tYQGsZiRw=="));
}

TEST_F(CS3ObjectsTest, setsNoTagThatADocumentCannotHold)
{
    EXPECT_THROW(objects().setTags("b", "k", {{"a\x01", "b"}}), kx::CError);
    EXPECT_THROW(objects().setTags("b", "k", {{"a", L"\xFFFE"}}), kx::CError);
}

TEST_F(CS3ObjectsTest, removesTags)
{
    answer(reply("204 No Content", ""));
    objects().removeTags("b", "k", "v");
    EXPECT_EQ(requestLine(), "DELETE /b/k?tagging&versionId=v HTTP/1.1");
}

} // namespace
