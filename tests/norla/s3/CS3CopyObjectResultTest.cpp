#include "norla/s3/CS3CopyObjectResult.h"

#include "tests/norla/s3/parseDocument.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using norla::CS3CopyObjectResult;

TEST(CS3CopyObjectResultTest, readsACopy)
{
    const auto result = parseDocument<CS3CopyObjectResult>(
        "<CopyObjectResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">\n"
        "<LastModified>2026-11-21T08:49:37.000Z</LastModified><ETag>\"e\"</ETag><X/></CopyObjectResult>");
    EXPECT_FALSE(result->getErrorResponse());
    EXPECT_EQ(result->getLastModified(), "2026-11-21T08:49:37.000Z");
    EXPECT_EQ(result->getETag(), "\"e\"");
}

TEST(CS3CopyObjectResultTest, readsAnErrorInItsPlace)
{
    const auto result
        = parseDocument<CS3CopyObjectResult>("<Error><Code>InternalError</Code><Message>m</Message></Error>");
    ASSERT_TRUE(result->getErrorResponse());
    EXPECT_EQ(result->getErrorResponse()->getCode(), "InternalError");
    EXPECT_EQ(result->getErrorResponse()->getMessage(), "m");
    EXPECT_EQ(result->getLastModified(), "");
    EXPECT_EQ(result->getETag(), "");
}

TEST(CS3CopyObjectResultTest, readsACopyWithoutDetails)
{
    EXPECT_EQ(parseDocument<CS3CopyObjectResult>("<CopyObjectResult/>")->getETag(), "");
}

TEST(CS3CopyObjectResultTest, readsABuffer)
{
    kx::TBuffer<unsigned char> buffer;
    const std::string document = "<CopyObjectResult><ETag>e</ETag></CopyObjectResult>";
    buffer.append(reinterpret_cast<const unsigned char*>(document.data()), document.size());
    EXPECT_EQ(CS3CopyObjectResult(&buffer).getETag(), "e");
}

TEST(CS3CopyObjectResultTest, refusesBytesThatAreNoXML)
{
    for (const auto document : {"", "OK", "<CopyObjectResult>"})
        EXPECT_EQ(
            parseMessage<CS3CopyObjectResult>(document), "Error parsing Amazon S3 'copy object' result: invalid XML.")
            << document;
}

TEST(CS3CopyObjectResultTest, refusesANegativeSize)
{
    EXPECT_EQ(support::messageOf([] { CS3CopyObjectResult("<CopyObjectResult/>", -1); }),
        "Error parsing Amazon S3 'copy object' result: invalid XML.");
}

TEST(CS3CopyObjectResultTest, namesAnUnknownRoot)
{
    EXPECT_EQ(parseMessage<CS3CopyObjectResult>("<CopyPartResult/>"),
        "Error parsing Amazon S3 'copy object' result: unknown root element 'CopyPartResult'.");
}

TEST(CS3CopyObjectResultTest, isAPlainErrorWhenItCannotBeParsed)
{
    for (const auto document : {"", "<html/>"}) {
        const auto error = support::errorOf([document] { parseDocument<CS3CopyObjectResult>(document); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getDomain(), "");
        EXPECT_EQ(error->getCode(), -1);
    }
}

} // namespace
