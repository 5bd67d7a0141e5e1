#include "norla/s3/CS3ErrorResponse.h"

#include "tests/norla/s3/parseDocument.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

namespace {

using norla::CS3ErrorResponse;

TEST(CS3ErrorResponseTest, holdsWhatItWasMadeFrom)
{
    const CS3ErrorResponse response("a", "b", "c", "d");
    EXPECT_EQ(response.getCode(), "a");
    EXPECT_EQ(response.getMessage(), "b");
    EXPECT_EQ(response.getResource(), "c");
    EXPECT_EQ(response.getRequestId(), "d");
}

TEST(CS3ErrorResponseTest, readsTheFourFieldsOfADocument)
{
    const auto response = parseDocument<CS3ErrorResponse>(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error>\n <Code>NoSuchKey</Code>\n <Message>It is not "
        "there &amp; never was</Message>\n <Resource>/bucket/key</Resource>\n <RequestId>tx01</RequestId>\n "
        "<HostId>host</HostId>\n</Error>\n");
    EXPECT_EQ(response->getCode(), "NoSuchKey");
    EXPECT_EQ(response->getMessage(), "It is not there & never was");
    EXPECT_EQ(response->getResource(), "/bucket/key");
    EXPECT_EQ(response->getRequestId(), "tx01");
}

TEST(CS3ErrorResponseTest, leavesFieldsEmptyThatTheDocumentDoesNotHave)
{
    const auto response = parseDocument<CS3ErrorResponse>("<Error><Message>why</Message></Error>");
    EXPECT_EQ(response->getMessage(), "why");
    EXPECT_EQ(response->getCode(), "");
    EXPECT_EQ(response->getResource(), "");
    EXPECT_EQ(response->getRequestId(), "");
}

TEST(CS3ErrorResponseTest, takesTheLastOfSeveralFieldsOfOneName)
{
    EXPECT_EQ(parseDocument<CS3ErrorResponse>("<Error><Code>first</Code><Code>last</Code></Error>")->getCode(), "last");
}

TEST(CS3ErrorResponseTest, readsOnlyTheRootsOwnChildren)
{
    EXPECT_EQ(parseDocument<CS3ErrorResponse>("<Error><Details><Code>inner</Code></Details></Error>")->getCode(), "");
}

TEST(CS3ErrorResponseTest, tellsNamesApartByCase)
{
    EXPECT_EQ(parseDocument<CS3ErrorResponse>("<Error><code>x</code><CODE>y</CODE></Error>")->getCode(), "");
}

TEST(CS3ErrorResponseTest, readsTextOutsideLatin1)
{
    EXPECT_EQ(
        parseDocument<CS3ErrorResponse>("<Error><Message>\xe6\xbc\xa2\xf0\x9f\x98\x80</Message></Error>")->getMessage(),
        kx::String(L"\u6f22\U0001f600"));
}

TEST(CS3ErrorResponseTest, keepsWhiteSpaceInAField)
{
    EXPECT_EQ(
        parseDocument<CS3ErrorResponse>("<Error><Message> a </Message><Code>  </Code></Error>")->getMessage(), " a ");
    EXPECT_EQ(parseDocument<CS3ErrorResponse>("<Error><Message> a </Message><Code>  </Code></Error>")->getCode(), "  ");
}

TEST(CS3ErrorResponseTest, refusesBytesThatAreNoXML)
{
    for (const auto document :
        {"", "Service Unavailable", "<Error>", "<Error></error>", "<Error/>trailing", "\xff\xfe"})
        EXPECT_EQ(parseMessage<CS3ErrorResponse>(document), "Error parsing Amazon S3 error response: invalid XML.")
            << document;
}

TEST(CS3ErrorResponseTest, refusesANegativeSize)
{
    EXPECT_EQ(support::messageOf([] { CS3ErrorResponse("<Error/>", -1); }),
        "Error parsing Amazon S3 error response: invalid XML.");
}

TEST(CS3ErrorResponseTest, refusesAnotherRoot)
{
    for (const auto document : {"<html/>", "<error/>", "<Errors/>", "<ListBucketResult/>"})
        EXPECT_EQ(parseMessage<CS3ErrorResponse>(document),
            "Error parsing Amazon S3 error result: root element is not 'Error'.");
}

TEST(CS3ErrorResponseTest, isAPlainErrorWhenItCannotBeParsed)
{
    const auto error = support::errorOf([] { parseDocument<CS3ErrorResponse>("no XML"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
}

TEST(CS3ErrorResponseTest, knowsWhatTheServiceSaysAboutAMissingObject)
{
    const auto response = CS3ErrorResponse::createObjectNotFoundResponse("/bucket/key");
    EXPECT_EQ(response->getCode(), "NoSuchKey");
    EXPECT_EQ(response->getMessage(), "The resource you requested does not exist");
    EXPECT_EQ(response->getResource(), "/bucket/key");
    EXPECT_EQ(response->getRequestId(), "#dummy#");
}

} // namespace
