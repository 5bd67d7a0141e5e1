#include "norla/s3/CS3UploadEnum.h"

#include "tests/norla/s3/CS3ListFixture.h"

#include <vector>

namespace {

using norla::CS3UploadEnum;

class CS3UploadEnumTest : public CS3ListFixture {
protected:
    void answerPage(const std::string& content, bool isTruncated)
    {
        answerDocument("<ListMultipartUploadsResult>" + content + "<IsTruncated>" + (isTruncated ? "true" : "false")
            + "</IsTruncated></ListMultipartUploadsResult>");
    }

    kx::P<CS3UploadEnum> list(const norla::CS3ListOptions& options = {})
    {
        return kx::newObj<CS3UploadEnum>(&store(), &request(), "b", options);
    }
};

TEST_F(CS3UploadEnumTest, tellsWhatTheStoreTellsOfAnUpload)
{
    answerPage("<Upload><Key>k</Key><UploadId>u</UploadId><Initiated>2026-11-21T08:49:37.000Z</Initiated>"
               "<StorageClass>STANDARD</StorageClass></Upload>",
        false);
    const auto uploads = list();
    ASSERT_TRUE(uploads->next());
    EXPECT_EQ(uploads->getCurrent()->key, "k");
    EXPECT_EQ(uploads->getCurrent()->uploadId, "u");
    EXPECT_EQ(uploads->getCurrent()->initiated, "2026-11-21T08:49:37.000Z");
    EXPECT_EQ(uploads->getCurrent()->storageClass, "STANDARD");
    EXPECT_FALSE(uploads->next());
}

TEST_F(CS3UploadEnumTest, goesOnBetweenTheUploadsOfAnObject)
{
    answerPage("<Upload><Key>k</Key><UploadId>u/1</UploadId></Upload><NextKeyMarker>k</NextKeyMarker>"
               "<NextUploadIdMarker>u/1</NextUploadIdMarker>",
        true);
    answerPage("<Upload><Key>k</Key><UploadId>u/2</UploadId></Upload>", false);
    const auto uploads = list({.prefix = "k", .startAfter = {}, .maxKeys = 1});
    EXPECT_TRUE(uploads->next());
    EXPECT_TRUE(uploads->next());
    EXPECT_FALSE(uploads->next());
    const std::string common = "GET /b?uploads&encoding-type=url&prefix=k&max-uploads=1";
    EXPECT_EQ(requestLine(0), common + " HTTP/1.1");
    EXPECT_EQ(requestLine(1), common + "&key-marker=k&upload-id-marker=u%2F1 HTTP/1.1");
}

TEST_F(CS3UploadEnumTest, refusesAnUploadThatNobodyCouldEnd)
{
    answerPage("<Upload><Key>k</Key></Upload>", false);
    EXPECT_EQ(support::messageOf([this] { list()->next(); }),
        "The listing of the bucket 'b' has an upload of 'k' without an id.");
}

TEST_F(CS3UploadEnumTest, refusesAnUploadOutsideThePrefix)
{
    answerPage("<Upload><Key>k</Key><UploadId>u</UploadId></Upload>", false);
    EXPECT_EQ(support::messageOf([this] { list({.prefix = "l"})->next(); }),
        "The listing of the bucket 'b' has 'k', which was not asked for: it does not begin with 'l'.");
}

TEST_F(CS3UploadEnumTest, endsWithAnErrorWhenAPageComesAgainUnderANewMarker)
{
    for (const char* const marker : {"1", "2"})
        answerPage("<Upload><Key>k</Key><UploadId>u</UploadId></Upload><NextKeyMarker>k</NextKeyMarker>"
                   "<NextUploadIdMarker>"
                + std::string(marker) + "</NextUploadIdMarker>",
            true);
    const auto uploads = list();
    EXPECT_TRUE(uploads->next());
    EXPECT_EQ(support::messageOf([&] { uploads->next(); }),
        "The listing of the bucket 'b' does not end: a page has the same objects as one before it, up to 'k'.");
}

} // namespace
