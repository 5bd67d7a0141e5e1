// Lists of what is in a bucket of a real store.
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3FolderEnum.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3UploadEnum.h"
#include "norla/s3/CS3VersionEnum.h"
#include "tests/live/S3EndpointSession.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Names = std::vector<kx::String>;

class S3ListsTest : public live::S3EndpointSession {
protected:
    static Names restOf(auto& list)
    {
        Names names;
        while (list.next())
            names.push_back(list.getCurrent()->key);
        return names;
    }

    template <typename TList>
    Names allOf(const norla::CS3ListOptions& options)
    {
        return restOf(*kx::newObj<TList>(&client(), &request(), m_bucket, options));
    }

    /// Names that any encoding could get wrong, in order.
    static Names oddNames()
    {
        Names names{"\x01", " ", "%25", "%2B", "&amp;", "+", "a\r\nb", "a b", "a+b", "a/b//c", "a\x7f",
            kx::String::fromUTF8("\xC3\xA4"), kx::String::fromUTF8("\xF0\x9F\x98\x80")};
        std::sort(names.begin(), names.end());
        return names;
    }

    void putAll(const Names& names)
    {
        for (const kx::String& name : names)
            put(name, "1");
    }

    kx::String beginUpload(const kx::String& key)
    {
        norla::CS3Call call;
        call.method = "POST";
        call.bucketName = m_bucket;
        call.objectName = key;
        call.parameters.emplace_back("uploads", "");
        client().performCall(request(), call);
        const std::string body = live::bodyOf(request());
        const size_t start = body.find("<UploadId>") + 10;
        return live::text(body.substr(start, body.find('<', start) - start));
    }
};

TEST_F(S3ListsTest, listsObjectsOfAnyNameInPagesOfAnySize)
{
    const Names names = oddNames();
    putAll(names);
    for (const int maxKeys : {-1, 1, 2, 5})
        EXPECT_EQ(allOf<norla::CS3ObjectListing>({.prefix = {}, .startAfter = {}, .maxKeys = maxKeys}), names)
            << maxKeys;
    EXPECT_EQ(allOf<norla::CS3ObjectListing>({.prefix = "a"}), (Names{"a\r\nb", "a b", "a+b", "a/b//c", "a\x7f"}));
    EXPECT_EQ(allOf<norla::CS3ObjectListing>({.prefix = "a", .startAfter = "a b"}), (Names{"a+b", "a/b//c", "a\x7f"}));
}

TEST_F(S3ListsTest, tellsOwnersWhenAsked)
{
    put("k", "12345");
    const auto list = kx::newObj<norla::CS3ObjectListing>(
        &client(), &request(), m_bucket, norla::CS3ListOptions{.prefix = {}, .startAfter = {}, .fetchOwner = true});
    ASSERT_TRUE(list->next());
    EXPECT_EQ(list->getCurrent()->size, 5);
    EXPECT_FALSE(list->getCurrent()->ownerId.isEmpty());
    EXPECT_FALSE(list->getCurrent()->lastModified.isEmpty());
    EXPECT_EQ(list->getCurrent()->eTag, "\"827ccb0eea8a706c4c34a16891f84e7b\"");
}

TEST_F(S3ListsTest, walksALevelInPagesOfAnySize)
{
    putAll({"a", "b/1", "b/2", "b/3", "c", "d e/1", "d e/\x01/2", "f/", "f/g/h"});
    for (const int maxKeys : {-1, 1, 2, 3}) {
        const norla::CS3ListOptions options{.prefix = {}, .startAfter = {}, .maxKeys = maxKeys};
        EXPECT_EQ(allOf<norla::CS3FolderEnum>(options), (Names{"a", "b/", "c", "d e/", "f/"})) << maxKeys;
    }
    EXPECT_EQ(allOf<norla::CS3FolderEnum>({.prefix = "d e/"}), (Names{"d e/\x01/", "d e/1"}));
    EXPECT_EQ(allOf<norla::CS3FolderEnum>({.prefix = "f/"}), (Names{"f/", "f/g/"}));
}

TEST_F(S3ListsTest, listsVersionsInPagesOfAnySize)
{
    const auto buckets = kx::newObj<norla::CS3Buckets>(&client(), &request());
    put("b", "before");
    buckets->setVersioning(m_bucket, norla::CS3Buckets::Versioning::Enabled);
    putAll({"a+ \x01", "a+ \x01", "b"});
    client().deleteObject(request(), m_bucket, "a+ \x01");
    for (const int maxKeys : {-1, 1, 2, 3}) {
        const norla::CS3ListOptions options{.prefix = {}, .startAfter = {}, .maxKeys = maxKeys};
        EXPECT_EQ(allOf<norla::CS3VersionEnum>(options), (Names{"a+ \x01", "a+ \x01", "a+ \x01", "b", "b"})) << maxKeys;
    }
    EXPECT_EQ(allOf<norla::CS3VersionEnum>({.prefix = {}, .startAfter = "a+ \x01"}), (Names{"b", "b"}));
    const auto list = kx::newObj<norla::CS3VersionEnum>(&client(), &request(), m_bucket);
    ASSERT_TRUE(list->next());
    EXPECT_TRUE(list->getCurrent()->isDeleteMarker);
    EXPECT_TRUE(list->getCurrent()->isLatest);
    Names ids;
    do
        ids.push_back(list->getCurrent()->versionId);
    while (list->next());
    EXPECT_EQ(ids.back(), "null");
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

TEST_F(S3ListsTest, listsUploadsInPagesOfAnySize)
{
    Names ids{beginUpload("a+ \x01"), beginUpload("a+ \x01"), beginUpload("b")};
    for (const int maxUploads : {-1, 1, 2}) {
        const norla::CS3ListOptions options{.prefix = {}, .startAfter = {}, .maxKeys = maxUploads};
        EXPECT_EQ(allOf<norla::CS3UploadEnum>(options), (Names{"a+ \x01", "a+ \x01", "b"})) << maxUploads;
    }
    const auto list = kx::newObj<norla::CS3UploadEnum>(&client(), &request(), m_bucket);
    Names listed;
    while (list->next())
        listed.push_back(list->getCurrent()->uploadId);
    std::sort(ids.begin(), ids.end());
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, ids);
}

} // namespace
