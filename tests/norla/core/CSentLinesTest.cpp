#include "norla/core/CSentLines.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/CSafeDefaults.h"
#include "tests/norla/core/CRequestFixture.h"

namespace {

/// A request with the safe defaults, to which a text from elsewhere is given.
class CSentLinesTest : public CRequestFixture {
protected:
    CSentLinesTest() { request().setSafeDefaults(); }

    static kx::P<norla::CNetStringList> listOf(const kx::String& line)
    {
        auto list = kx::newObj<norla::CNetStringList>();
        list->add("NOOP");
        list->add(line);
        return list;
    }

    void setHeader(const kx::String& value)
    {
        const auto headers = kx::newObj<norla::CNetHeaders>();
        headers->add("X-Name", value);
        request().setCustomHTTPHeaders(headers.get());
    }

    /// Of the transfer, which must have sent nothing.
    std::string refusal()
    {
        const auto error = failureOf();
        EXPECT_EQ(server().connectionCount(), 0u);
        EXPECT_NE(dynamic_cast<const kx::CInvalidArgError*>(error.get()), nullptr);
        return error ? error->getMessage().toUTF8() : "(no error)";
    }

    static std::string refusalOf(const std::string& what)
    {
        return "Invalid argument passed to 'CNetRequest::setSafeDefaults': the " + what
            + " holds a line end, which would begin another line.";
    }
};

TEST_F(CSentLinesTest, refuseAHeaderFieldThatBeginsAnother)
{
    setHeader("secret\r\nX-Admin: 1");
    EXPECT_EQ(refusal(), refusalOf("header field 'X-Name'"));
}

TEST_F(CSentLinesTest, refuseAHeaderFieldThatWasAddedAfterwards)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    request().setCustomHTTPHeaders(headers.get());
    headers->add("X-Name", "a\nX-Admin: 1");
    EXPECT_EQ(refusal(), refusalOf("header field 'X-Name'"));
}

TEST_F(CSentLinesTest, refuseAHeaderFieldOfAListOfLibcurls)
{
    const auto list = listOf("X-Name: a\rX-Admin: 1");
    request().setOptionPtr(CURLOPT_HTTPHEADER, list->getCurlList());
    EXPECT_EQ(refusal(), refusalOf("header field 'X-Name'"));
}

TEST_F(CSentLinesTest, refuseAFieldForTheProxyThatBeginsAnother)
{
    const auto list = listOf("X-Name: a\r\nX-Admin: 1");
    request().setOptionPtr(CURLOPT_PROXYHEADER, list->getCurlList());
    EXPECT_EQ(refusal(), refusalOf("header field 'X-Name'"));
}

TEST_F(CSentLinesTest, refuseACommandBeforeATransferThatBeginsAnother)
{
    request().setFTPCustomPreCommands(listOf("DELE a\r\nDELE b").get());
    EXPECT_EQ(refusal(), refusalOf("command 'DELE'"));
}

TEST_F(CSentLinesTest, refuseACommandBehindATransferThatBeginsAnother)
{
    request().setFTPCustomPostCommands(listOf("DELE a\nDELE b").get());
    EXPECT_EQ(refusal(), refusalOf("command 'DELE'"));
}

TEST_F(CSentLinesTest, refuseACommandOfAListOfLibcurls)
{
    const auto list = listOf("rm a\nrm b");
    request().setOptionPtr(CURLOPT_QUOTE, list->getCurlList());
    EXPECT_EQ(refusal(), refusalOf("command 'rm'"));
}

TEST_F(CSentLinesTest, refuseASenderThatBeginsACommand)
{
    request().setOptionString(CURLOPT_MAIL_FROM, "a@x>\r\nRCPT TO:<c@x");
    EXPECT_EQ(refusal(), refusalOf("sender 'a@x>'"));
}

TEST_F(CSentLinesTest, refuseASenderByAPointerThatBeginsACommand)
{
    request().setOptionPtr(CURLOPT_MAIL_FROM, const_cast<char*>("a@x>\r\nRCPT TO:<c@x"));
    EXPECT_EQ(refusal(), refusalOf("sender 'a@x>'"));
}

TEST_F(CSentLinesTest, refuseARecipientThatBeginsACommand)
{
    const auto list = listOf("b@x>\r\nRCPT TO:<c@x");
    request().setOptionPtr(CURLOPT_MAIL_RCPT, list->getCurlList());
    EXPECT_EQ(refusal(), refusalOf("recipient 'b@x>'"));
}

TEST_F(CSentLinesTest, areSentAsTheyAreWithoutThatLine)
{
    request().setSafeDefaults({.oneLineEach = false});
    setHeader("a\r\nX-Second: 1");
    answer(ok("body"));
    EXPECT_EQ(failureOf(), nullptr);
    EXPECT_NE(received().find("\r\nX-Name: a\r\nX-Second: 1\r\n"), std::string::npos);
}

TEST_F(CSentLinesTest, areThoseOfTheTransferAlone)
{
    setHeader("a\r\nX-Admin: 1");
    request().setFTPCustomPreCommands(listOf("DELE a\r\nDELE b").get());
    request().setFTPCustomPostCommands(listOf("DELE a\r\nDELE b").get());
    request().setOptionString(CURLOPT_MAIL_FROM, "a@x>\r\nRCPT TO:<c@x");
    refusal();
    setHeader("a");
    request().setFTPCustomPreCommands(nullptr);
    request().setFTPCustomPostCommands(nullptr);
    request().setOptionString(CURLOPT_MAIL_FROM, "");
    answer(ok("body"));
    EXPECT_EQ(failureOf(), nullptr);
}

TEST_F(CSentLinesTest, areForgottenAtAReset)
{
    {
        const auto list = listOf("b@x>\r\nRCPT TO:<c@x");
        request().setOptionPtr(CURLOPT_MAIL_RCPT, list->getCurlList());
        request().setOptionString(CURLOPT_MAIL_FROM, "a@x>\r\nRCPT TO:<c@x");
        request().reset();
    }
    request().setSafeDefaults();
    answer(ok("body"));
    EXPECT_EQ(failureOf(), nullptr);
}

} // namespace
