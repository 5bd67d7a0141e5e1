// What the setters refuse before libcurl sees it.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetRequest.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"
#include "tests/support/leakCheck.h"

namespace {

using Options = std::vector<std::string>;

class OptionChecksTest : public CRequestFixture {
protected:
    OptionChecksTest() { m_calls.takeOptions(); }

    Options options() { return m_calls.takeOptions(); }

    static kx::P<kx::CBufferStream> streamOf(const std::string& text)
    {
        const auto buffer = kx::newObj<norla::CNetRequest::Buffer>();
        buffer->append(reinterpret_cast<const unsigned char*>(text.data()), text.size());
        return kx::newObj<kx::CBufferStream>(buffer);
    }

    template <typename TAction>
    kx::String refusalOf(TAction action)
    {
        const auto error = support::errorOf([&] { action(request()); });
        EXPECT_TRUE(dynamic_cast<kx::CInvalidArgError*>(error.get())) << (error ? error->what() : "no error");
        EXPECT_EQ(options(), Options());
        return error ? error->getMessage() : "";
    }

private:
    support::CCurlCalls m_calls;
};

TEST_F(OptionChecksTest, numberIsNoText)
{
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionInt(CURLOPT_URL, 1); }),
        "Invalid argument passed to 'CNetRequest::setOptionInt': CURLOPT_URL does not take a number.");
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionInt64(CURLOPT_USERNAME, 1); }),
        "Invalid argument passed to 'CNetRequest::setOptionInt64': CURLOPT_USERNAME does not take a number.");
}

TEST_F(OptionChecksTest, textIsNoNumber)
{
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionString(CURLOPT_TIMEOUT, "5"); }),
        "Invalid argument passed to 'CNetRequest::setOptionString': CURLOPT_TIMEOUT does not take a text.");
}

TEST_F(OptionChecksTest, textIsNoList)
{
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionString(CURLOPT_HTTPHEADER, "A: 1"); }),
        "Invalid argument passed to 'CNetRequest::setOptionString': CURLOPT_HTTPHEADER does not take a text.");
}

TEST_F(OptionChecksTest, pointerIsNoNumber)
{
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionPtr(CURLOPT_INFILESIZE_LARGE, nullptr); }),
        "Invalid argument passed to 'CNetRequest::setOptionPtr': CURLOPT_INFILESIZE_LARGE does not take a pointer.");
}

TEST_F(OptionChecksTest, numberOfEitherSizeIsANumber)
{
    request().setOptionInt(CURLOPT_INFILESIZE_LARGE, 5);
    request().setOptionInt64(CURLOPT_MAXREDIRS, 5);
    EXPECT_EQ(options(), (Options{"INFILESIZE_LARGE=5", "MAXREDIRS=5"}));
}

TEST_F(OptionChecksTest, unknownOptionIsRefusedByLibcurl)
{
    const auto error = support::errorOf([&] { request().setOptionInt(static_cast<CURLoption>(9'999), 1); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_UNKNOWN_OPTION);
}

struct CWireText {
    const char* name;
    void (*set)(norla::CNetRequest&, const kx::String&);
};

void PrintTo(const CWireText& text, std::ostream* out)
{
    *out << text.name;
}

class WireTextTest : public OptionChecksTest, public testing::WithParamInterface<CWireText> {};

std::string nameOfText(const testing::TestParamInfo<CWireText>& text)
{
    return text.param.name;
}

TEST_P(WireTextTest, holdsNoLineEnd)
{
    for (const kx::String& lineEnd : {kx::String("\r"), kx::String("\n"), kx::String("\r\n")}) {
        const kx::String message = refusalOf([&](auto& r) { GetParam().set(r, "secret" + lineEnd + "DELE x"); });
        EXPECT_NE(message.find("contains a line end"), kx::String::npos) << message;
        EXPECT_EQ(message.find("secret"), kx::String::npos) << message;
    }
}

INSTANTIATE_TEST_SUITE_P(OfEverySetter, WireTextTest,
    testing::Values(CWireText{"userName", [](auto& r, auto& text) { r.setUserName(text); }},
        CWireText{"password", [](auto& r, auto& text) { r.setUserPassword(text); }},
        CWireText{"method", [](auto& r, auto& text) { r.setHTTPMethod(text); }},
        CWireText{"listCommand", [](auto& r, auto& text) { r.setFTPListOverrideCommand(text); }},
        CWireText{"proxy", [](auto& r, auto& text) { r.setProxy(text); }},
        CWireText{"userAgent", [](auto& r, auto& text) { r.setOptionString(CURLOPT_USERAGENT, text); }},
        CWireText{"range", [](auto& r, auto& text) { r.setOptionString(CURLOPT_RANGE, text); }},
        CWireText{"referer", [](auto& r, auto& text) { r.setOptionString(CURLOPT_REFERER, text); }},
        CWireText{"cookie", [](auto& r, auto& text) { r.setOptionString(CURLOPT_COOKIE, text); }},
        CWireText{"bearerToken", [](auto& r, auto& text) { r.setOptionString(CURLOPT_XOAUTH2_BEARER, text); }}),
    nameOfText);

TEST_F(OptionChecksTest, refusalNamesTheOption)
{
    EXPECT_EQ(refusalOf([](auto& r) { r.setUserName("bob\r\nDELE x"); }),
        "Invalid argument passed to 'CNetRequest::setOptionString': the text for CURLOPT_USERNAME contains a line "
        "end.");
}

TEST_F(OptionChecksTest, refusedMethodLeavesTheOldOne)
{
    request().setHTTPMethod("PUT");
    options();
    refusalOf([](auto& r) { r.setHTTPMethod("GET / HTTP/1.1\r\nX: y"); });
    EXPECT_EQ(request().getHTTPMethod(), "PUT");
}

TEST_F(OptionChecksTest, envelopeSenderAndURLArePassedOnAsTheyAre)
{
    request().setOptionString(CURLOPT_MAIL_FROM, "a\r\nb");
    request().setURL("http://h/\n");
    request().setOptionString(CURLOPT_CAINFO, "/a\nb");
    EXPECT_EQ(options(), (Options{"MAIL_FROM=a\r\nb", "URL=http://h/\n", "CAINFO=/a\nb"}));
}

// The body as a text, which libcurl would otherwise not copy.

TEST_F(OptionChecksTest, bodyAsATextIsCopiedWithItsSize)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    EXPECT_EQ(options(), (Options{"POSTFIELDSIZE_LARGE=3", "COPYPOSTFIELDS=set"}));
}

TEST_F(OptionChecksTest, bodyAsATextIsSentThoughItIsGone)
{
    answer(ok("fine"));
    {
        const kx::String text = "name=a text that is too long for a string without an allocation of its own";
        request().setOptionString(CURLOPT_POSTFIELDS, text);
    }
    performPath();
    EXPECT_TRUE(
        received().ends_with("\r\n\r\nname=a text that is too long for a string without an allocation of its own"));
}

TEST_F(OptionChecksTest, sizeBeyondTheTextIsRefused)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    options();
    EXPECT_EQ(refusalOf([](auto& r) { r.setOptionInt64(CURLOPT_POSTFIELDSIZE_LARGE, 4); }),
        "Invalid argument passed to 'CNetRequest::setOptionInt64': the size 4 is more than the 3 bytes of the body set "
        "by "
        "CURLOPT_POSTFIELDS.");
    refusalOf([](auto& r) { r.setOptionInt(CURLOPT_POSTFIELDSIZE, 4); });
    request().setOptionInt(CURLOPT_POSTFIELDSIZE, 3);
}

TEST_F(OptionChecksTest, methodAfterTheTextKeepsItsSize)
{
    answer(ok("fine"));
    request().setSendDataSize(1'000);
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    request().setHTTPMethod("POST");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\na=1"));
}

TEST_F(OptionChecksTest, resetForgetsTheTextsSize)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    request().reset();
    options();
    request().setOptionInt64(CURLOPT_POSTFIELDSIZE_LARGE, 4);
    EXPECT_EQ(options(), Options{"POSTFIELDSIZE_LARGE=4"});
}

// A size belongs to the body that it was set with.

TEST_F(OptionChecksTest, bodyByAPointerIsNotAsLongAsTheTextBefore)
{
    answer(ok("one")).readHead().send(ok("two"));
    request().setOptionString(CURLOPT_POSTFIELDS, kx::String(std::wstring(200, L'x')));
    performPath();
    char body[] = "ab";
    request().setOptionPtr(CURLOPT_POSTFIELDS, static_cast<void*>(body));
    performPath();
    EXPECT_TRUE(received().ends_with("Content-Length: 2\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\nab"))
        << received();
}

TEST_F(OptionChecksTest, sourceAfterATextHasNoSize)
{
    request().setHTTPMethod("PUT");
    request().setSendDataAsUTF8("hello");
    options();
    request().setSendDataStream(kx::newObj<kx::CBufferStream>().get());
    EXPECT_EQ(options(), Options{"INFILESIZE_LARGE=-1"});
}

TEST_F(OptionChecksTest, sourceKeepsASizeThatWasSetByItself)
{
    request().setSendDataSize(5);
    options();
    request().setSendDataStream(kx::newObj<kx::CBufferStream>().get());
    EXPECT_EQ(options(), Options());
}

TEST_F(OptionChecksTest, sourceKeepsASizeThatWasSetBehindAnotherBody)
{
    request().setSendDataAsUTF8("hello");
    request().setSendDataSize(3);
    options();
    request().setSendDataStream(kx::newObj<kx::CBufferStream>().get());
    EXPECT_EQ(options(), Options());
}

TEST_F(OptionChecksTest, sourceAfterATextIsSentWhole)
{
    server().onConnection().readUntil("0\r\n\r\n").send(ok("fine"));
    request().setHTTPMethod("POST");
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    request().setSendDataStream(streamOf("hello").get());
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\n5\r\nhello\r\n0\r\n\r\n")) << received();
}

TEST_F(OptionChecksTest, sourceTakesThePlaceOfATextThatHasMadeAPOSTOfTheRequest)
{
    server().onConnection().readUntil("0\r\n\r\n").send(ok("fine"));
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1");
    request().setSendDataStream(streamOf("hello").get());
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\n5\r\nhello\r\n0\r\n\r\n")) << received();
}

TEST_F(OptionChecksTest, sourceAfterATextIsSentByTheMethod)
{
    server().onConnection().readUntil("0\r\n\r\n").send(ok("fine"));
    request().setHTTPMethod("PUT");
    request().setOptionString(CURLOPT_POSTFIELDS, "a=1"); // to libcurl also a POST
    request().setSendDataStream(streamOf("hello").get());
    performPath();
    EXPECT_TRUE(received().starts_with("PUT ")) << received();
}

TEST_F(OptionChecksTest, textOfAnotherMethodComesBackWithPOST)
{
    answer(ok("one")).readHead().send(ok("two")).readHead().readBytes(6).send(ok("three"));
    request().setOptionString(CURLOPT_POSTFIELDS, "abcdef");
    request().setHTTPMethod("POST");
    performPath();
    request().setHTTPMethod("GET");
    performPath();
    request().setHTTPMethod("POST");
    performPath();
    EXPECT_EQ(body(), "three");
    EXPECT_TRUE(received().ends_with("abcdef")) << received();
}

TEST_F(OptionChecksTest, anotherBodyTakesThePlaceOfTheText)
{
    answer(ok("fine"));
    request().setHTTPMethod("POST");
    request().setOptionString(CURLOPT_POSTFIELDS, "secret=abcdef");
    request().setSendDataAsUTF8("hi");
    performPath();
    EXPECT_TRUE(received().ends_with("hi")) << received();
    EXPECT_EQ(received().find("secret"), std::string::npos);
}

/// Gives what it has, whatever size was told.
class CSizedTest : public OptionChecksTest {
protected:
    kx::P<kx::CError> failureOfUpload(const std::string& given, long long told)
    {
        request().setHTTPMethod("PUT");
        request().setSendDataStream(streamOf(given).get());
        request().setSendDataSize(told);
        return failureOf();
    }
};

TEST_F(CSizedTest, moreThanTheSizeIsNoRequestOfItsOwn)
{
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(5).send(ok("fine"));
    EXPECT_FALSE(failureOfUpload("helloDELETE / HTTP/1.1\r\nHost: x\r\n\r\n", 5));
    EXPECT_TRUE(received().ends_with("\r\n\r\nhello")) << received();
}

TEST_F(CSizedTest, lessThanTheSizeIsAnErrorAtOnce)
{
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readToEnd();
    const auto error = failureOfUpload("hello", 8);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "The data to be sent have ended 3 bytes before their size of 8.");
    expectGoodTransfer();
}

TEST_F(OptionChecksTest, refusedURLLeavesTheOldOne)
{
    request().setURL("http://h/");
    EXPECT_THROW(request().setURL(kx::String(std::wstring(L"ftp://h/\0", 9))), kx::CInvalidArgError);
    EXPECT_EQ(request().getURL(), "http://h/");
    EXPECT_EQ(request().getResponseCodeDomain(), "http");
}

TEST_F(OptionChecksTest, urlAsAnOptionIsTheURL)
{
    request().setOptionString(CURLOPT_URL, "ftp://h/");
    EXPECT_EQ(request().getURL(), "ftp://h/");
    EXPECT_EQ(request().getResponseCodeDomain(), "ftp");
}

/// Each option that switches cookies on.
class CookieResetTest : public CRequestFixture, public testing::WithParamInterface<CURLoption> {
protected:
    void switchCookiesOn()
    {
        kx::String value; // of CURLOPT_COOKIEFILE none: cookies that nobody has stored
        if (GetParam() == CURLOPT_COOKIELIST)
            value = "Set-Cookie: other=CAROL; domain=nowhere.test";
        else if (GetParam() == CURLOPT_COOKIEJAR)
            value = kx::String::fromUTF8((m_folder.path() / "jar").string());
        // libcurl 7.88 loses the name of a file of cookies at a reset.
        support::withoutLeakCheck([&] { request().setOptionString(GetParam(), value); });
    }

    static std::string giving(const std::string& session) { return ok("x", "Set-Cookie: session=" + session + "\r\n"); }

private:
    const support::CTemporaryFolder m_folder;
};

TEST_P(CookieResetTest, forgetsThem)
{
    answer(giving("ALICE")).readHead().send(ok("x")).readHead().send(ok("x"));
    switchCookiesOn();
    performPath();
    performPath();
    request().reset();
    performPath();
    const std::string all = received();
    EXPECT_NE(all.find("Cookie: session=ALICE"), std::string::npos) << all;
    EXPECT_EQ(all.find("ALICE"), all.rfind("ALICE")) << all;
}

// libcurl goes on with cookies after a reset.
TEST_P(CookieResetTest, forgetsThoseOfTransfersAfterAnotherReset)
{
    answer(ok("x")).readHead().send(giving("BOB")).readHead().send(ok("x"));
    switchCookiesOn();
    performPath();
    request().reset();
    performPath();
    request().reset();
    performPath();
    EXPECT_EQ(received().find("BOB"), std::string::npos) << received();
}

INSTANTIATE_TEST_SUITE_P(All, CookieResetTest,
    testing::Values(CURLOPT_COOKIEFILE, CURLOPT_COOKIEJAR, CURLOPT_COOKIELIST),
    [](const auto& option) { return std::string(curl_easy_option_by_id(option.param)->name); });

} // namespace
