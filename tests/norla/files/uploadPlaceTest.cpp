#include "norla/files/uploadPlace.h"

#include "kx/base/CError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using norla::uploadPlaceOf;
using testing::HasSubstr;

std::string errorFor(const std::string& url)
{
    try {
        uploadPlaceOf(url, "0123456789abcdef");
    } catch (const kx::CError& error) {
        return error.what();
    }
    return {};
}

TEST(UploadPlaceTest, putsTheTemporaryFileBesideTheFinalOne)
{
    const auto place = uploadPlaceOf("ftp://user:pw@host:2121/a%20b/c%20d.txt", "0123456789abcdef");
    EXPECT_EQ(place.folderURL, "ftp://user:pw@host:2121/a%20b/");
    EXPECT_EQ(place.temporaryURL, "ftp://user:pw@host:2121/a%20b/c%20d.txt.0123456789abcdef.norla-part");
    EXPECT_EQ(place.name, "c d.txt");
    EXPECT_EQ(place.temporaryName, "c d.txt.0123456789abcdef.norla-part");
}

TEST(UploadPlaceTest, takesAnEscapedSlashForOne)
{
    const auto place = uploadPlaceOf("ftp://host/%2Ftop%2ffile", "d");
    EXPECT_EQ(place.folderURL, "ftp://host/%2Ftop%2f");
    EXPECT_EQ(place.name, "file");
}

TEST(UploadPlaceTest, keepsTheTypeOfAnFTPTransferAtTheEnd)
{
    const auto place = uploadPlaceOf("ftp://host/file;type=i", "d");
    EXPECT_EQ(place.temporaryURL, "ftp://host/file.d.norla-part;type=i");
    EXPECT_EQ(place.name, "file");
}

TEST(UploadPlaceTest, givesCommandsOfSFTPTheWholePathInQuotationMarks)
{
    const auto place = uploadPlaceOf("sftp://host/top/a%22b%5Cc", "d");
    EXPECT_EQ(place.name, "\"/top/a\\\"b\\\\c\"");
    EXPECT_EQ(place.temporaryName, "\"/top/a\\\"b\\\\c.d.norla-part\"");
    EXPECT_TRUE(place.isSFTP);
}

TEST(UploadPlaceTest, writesTheDirectoryOfAnSFTPLoginAsNothing)
{
    EXPECT_EQ(uploadPlaceOf("sftp://host/~/file", "d").name, "\"file\"");
}

TEST(UploadPlaceTest, shortensALongNameByWholeCharacters)
{
    std::string name = "x";
    while (name.size() < 255)
        name += "\xC3\xA4";
    const auto place = uploadPlaceOf("ftp://host/" + name, "0123456789abcdef");
    const std::string ending = ".0123456789abcdef.norla-part";
    EXPECT_EQ(place.name, name);
    EXPECT_EQ(place.temporaryName, name.substr(0, 227) + ending);
    name.insert(0, "x");
    EXPECT_EQ(uploadPlaceOf("ftp://host/" + name, "0123456789abcdef").temporaryName, name.substr(0, 226) + ending);
}

TEST(UploadPlaceTest, leavesBytesThatAreNoUTF8AsTheyAre)
{
    EXPECT_EQ(uploadPlaceOf("ftp://host/Gr%FCn", "d").name, "Gr\xFCn");
    EXPECT_EQ(uploadPlaceOf("ftp://host/Gr%FCn", "d").temporaryURL, "ftp://host/Gr%FCn.d.norla-part");
}

TEST(UploadPlaceTest, refusesWhatWouldBeginAnotherCommand)
{
    EXPECT_THAT(errorFor("ftp://host/a%0D%0ADELE%20b"), HasSubstr("control character"));
    EXPECT_THAT(errorFor("sftp://host/a%0Ab/c"), HasSubstr("control character"));
}

TEST(UploadPlaceTest, refusesAURLThatNamesNoFile)
{
    EXPECT_THAT(errorFor("ftp://user:pw@host/folder/"),
        testing::Eq("No file can be sent to 'ftp://host/folder/': its path names no file."));
    EXPECT_THAT(errorFor("ftp://host/.."), HasSubstr("names no file"));
    EXPECT_THAT(errorFor("ftp://host"), HasSubstr("names no file"));
}

TEST(UploadPlaceTest, refusesAQueryAndAFragment)
{
    EXPECT_THAT(errorFor("ftp://host/file?x"), HasSubstr("query or a fragment"));
    EXPECT_THAT(errorFor("sftp://host/file#x"), HasSubstr("query or a fragment"));
}

} // namespace
