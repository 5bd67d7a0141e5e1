#include "norla/mail/CMimeMessage.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CNetHeaders.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/norla/mail/mimeBytes.h"
#include "tests/norla/mail/repeated.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

/// Takes a few bytes at a time and keeps them; fails as the test wants.
class CSlowStream : public kx::CBase, public virtual kx::IOutStream {
public:
    int write(const unsigned char* data, int size) override
    {
        ++m_writes;
        if (m_throwsAt == m_writes)
            throw std::runtime_error("disk full");
        const int taken = std::min({size, m_atOnce, m_room});
        m_room -= taken;
        m_text.append(reinterpret_cast<const char*>(data), static_cast<size_t>(taken));
        return taken;
    }
    long long getLength() override { return -1; }
    void seek(long long) override { throw std::logic_error("not needed"); }
    long long getPosition() override { return -1; }

    int m_atOnce = 7;
    int m_room = 1000;
    int m_throwsAt = 0;
    int m_writes = 0;
    std::string m_text;
};

/// Keeps where the bytes lay that it was given, not the bytes.
class CNotingStream : public kx::CBase, public virtual kx::IOutStream {
public:
    int write(const unsigned char* data, int size) override
    {
        m_places.push_back(data);
        m_total += size;
        return size;
    }
    long long getLength() override { return -1; }
    void seek(long long) override { throw std::logic_error("not needed"); }
    long long getPosition() override { return -1; }

    std::vector<const unsigned char*> m_places;
    long long m_total = 0;
};

kx::P<norla::CMimeMessage> newMessage(const kx::String& contentType = "")
{
    return kx::newObj<norla::CMimeMessage>(contentType);
}

kx::P<kx::CError> storeFailure(const norla::CMimeMessage& message, kx::IOutStream& out)
{
    try {
        message.store(out);
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

TEST(CMimeMessageTest, hasItsVersionOnlyWithoutAContentType)
{
    EXPECT_EQ(stored(*newMessage()), "MIME-Version: 1.0\r\n\r\n");
}

TEST(CMimeMessageTest, hasTheContentTypeItWasMadeWith)
{
    EXPECT_EQ(stored(*newMessage("text/plain")), "Content-Type: text/plain\r\nMIME-Version: 1.0\r\n\r\n");
}

TEST(CMimeMessageTest, showsTheHeadersOfAConstMessage)
{
    const auto message = newMessage("text/plain");
    message->getHeaders()["Subject"] = "x";
    const kx::PC<norla::CMimeMessage> readOnly = message;
    EXPECT_EQ(&readOnly->getHeaders(), &message->getHeaders());
    EXPECT_EQ(readOnly->getHeaders().at("Subject"), "x");
    static_assert(std::is_const_v<std::remove_reference_t<decltype(readOnly->getHeaders())>>);
}

TEST(CMimeMessageTest, storesTheBodyBehindTheHeaderBlockUnchanged)
{
    EXPECT_EQ(stored(*messageOf("", std::string_view(".\n\0\r\n.\r\n\xFF", 9))),
        std::string("MIME-Version: 1.0\r\n\r\n.\n\0\r\n.\r\n\xFF", 30));
}

TEST(CMimeMessageTest, namesTheTransferEncodingOfTheBody)
{
    const auto message = newMessage();
    message->setBody(bufferOf("AAAA").get(), "base64");
    EXPECT_EQ(stored(*message), "Content-Transfer-Encoding: base64\r\nMIME-Version: 1.0\r\n\r\nAAAA");
}

TEST(CMimeMessageTest, aLaterBodyWithoutTransferEncodingRemovesTheField)
{
    const auto message = newMessage();
    message->setBody(bufferOf("AAAA").get(), "base64");
    message->setBody(bufferOf("plain").get(), "");
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\n\r\nplain");
}

TEST(CMimeMessageTest, aLaterTransferEncodingReplacesTheField)
{
    const auto message = newMessage();
    message->setBody(nullptr, "base64");
    message->setBody(nullptr, "8bit");
    EXPECT_EQ(message->getHeaders().at("Content-Transfer-Encoding"), "8bit");
}

TEST(CMimeMessageTest, aNullBodyTakesTheBodyAway)
{
    const auto message = messageOf("", "body");
    message->setBody(nullptr, "");
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\n\r\n");
}

TEST(CMimeMessageTest, storesWhatTheSharedBodyHoldsThen)
{
    const auto message = newMessage();
    const auto body = bufferOf("before");
    message->setBody(body.get(), "");
    body->setSize(0);
    body->append(reinterpret_cast<const unsigned char*>("after"), 5);
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\n\r\nafter");
}

TEST(CMimeMessageTest, keepsTheBodyAliveThatItsCallerHasReleased)
{
    const auto message = newMessage();
    message->setBody(kx::newObj<kx::TBuffer<unsigned char>>(*bufferOf("alone")).get(), "");
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\n\r\nalone");
}

TEST(CMimeMessageTest, writesTheBodyFromWhereItLies)
{
    const auto message = newMessage();
    const auto body = bufferOf("body");
    message->setBody(body.get(), "");
    CNotingStream out;
    message->storeBody(out);
    EXPECT_EQ(out.m_places, std::vector<const unsigned char*>{body->getData()});
}

TEST(CMimeMessageTest, writesNothingForAnEmptyBody)
{
    CNotingStream out;
    messageOf("", "")->storeBody(out);
    EXPECT_TRUE(out.m_places.empty());
}

TEST(CMimeMessageTest, storesABodyThatIsLargerThanOneWriteCanBe)
{
    constexpr size_t size = 2'147'483'647u + 10u; // nothing of it is ever touched
    const auto message = newMessage();
    const auto body = kx::newObj<kx::TBuffer<unsigned char>>(size);
    message->setBody(body.get(), "");
    CNotingStream out;
    message->storeBody(out);
    EXPECT_EQ(out.m_total, static_cast<long long>(size));
    EXPECT_EQ(out.m_places, (std::vector<const unsigned char*>{body->getData(), body->getData() + 2'147'483'647}));
}

TEST(CMimeMessageTest, storesTheFieldsInTheOrderOfTheirNames)
{
    const auto message = newMessage();
    message->getHeaders()["Subject"] = "s";
    message->getHeaders()["From"] = "f";
    message->getHeaders()["Date"] = "d";
    EXPECT_EQ(stored(*message), "Date: d\r\nFrom: f\r\nMIME-Version: 1.0\r\nSubject: s\r\n\r\n");
}

TEST(CMimeMessageTest, storesUpperCaseBeforeLowerCase)
{
    const auto message = newMessage();
    message->getHeaders()["a"] = "1";
    message->getHeaders()["X"] = "2";
    message->getHeaders()["B"] = "3";
    EXPECT_EQ(stored(*message), "B: 3\r\nMIME-Version: 1.0\r\nX: 2\r\na: 1\r\n\r\n");
}

TEST(CMimeMessageTest, storesNamesOfOtherLetterCaseAsOtherFields)
{
    const auto message = newMessage();
    message->getHeaders()["SUBJECT"] = "1";
    message->getHeaders()["Subject"] = "2";
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\nSUBJECT: 1\r\nSubject: 2\r\n\r\n");
}

TEST(CMimeMessageTest, fieldsCanBeTakenAway)
{
    const auto message = newMessage("text/plain");
    message->getHeaders().clear();
    EXPECT_EQ(stored(*message), "\r\n");
}

TEST(CMimeMessageTest, storesAnEmptyValueBehindItsBlank)
{
    const auto message = newMessage();
    message->getHeaders()["A"] = "";
    EXPECT_EQ(stored(*message), "A: \r\nMIME-Version: 1.0\r\n\r\n");
}

TEST(CMimeMessageTest, storesValuesOutsideASCIIAsEncodedWords)
{
    const auto message = newMessage();
    message->getHeaders()["Subject"] = L"Gr\u00FC\u00DFe";
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\nSubject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n\r\n");
}

TEST(CMimeMessageTest, putsALineEndInAnASCIIValueIntoTheBlockAsItIs)
{
    const auto message = newMessage();
    message->getHeaders()["A"] = "1\r\nB: 2";
    EXPECT_EQ(stored(*message), "A: 1\r\nB: 2\r\nMIME-Version: 1.0\r\n\r\n");
}

TEST(CMimeMessageTest, storesANameOutsideASCIIAsLatin1)
{
    const auto message = newMessage();
    message->getHeaders()[L"\u00DC"] = "1";
    EXPECT_EQ(stored(*message), "MIME-Version: 1.0\r\n\xDC: 1\r\n\r\n");
}

TEST(CMimeMessageTest, refusesANameBeyondLatin1BeforeItWritesAnything)
{
    const auto message = newMessage();
    message->getHeaders()[L"\u20AC"] = "1";
    CSlowStream out;
    const auto failure = storeFailure(*message, out);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->getMessage(), L"Text cannot be written in ISO 8859-1: '\u20AC: 1'.");
    EXPECT_EQ(out.m_text, "");
}

TEST(CMimeMessageTest, refusesAValueWithoutUTF8FormBeforeItWritesAnything)
{
    const auto message = newMessage();
    message->getHeaders()["X"] = kx::String(std::wstring(1, static_cast<wchar_t>(0xD800)));
    CSlowStream out;
    EXPECT_TRUE(storeFailure(*message, out));
    EXPECT_EQ(out.m_text, "");
}

TEST(CMimeMessageTest, writesOnUntilTheStreamHasTakenAll)
{
    CSlowStream out;
    messageOf("", "a body that is longer than seven")->store(out);
    EXPECT_EQ(out.m_text, "MIME-Version: 1.0\r\n\r\na body that is longer than seven");
}

TEST(CMimeMessageTest, refusesAStreamThatTakesNoMore)
{
    CSlowStream out;
    out.m_room = 25;
    const auto failure = storeFailure(*messageOf("", "0123456789"), out);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->getMessage(), "The stream to which a message is stored takes no more bytes.");
    EXPECT_EQ(out.m_text, "MIME-Version: 1.0\r\n\r\n0123");
}

TEST(CMimeMessageTest, aFailingStreamsOwnErrorArrives)
{
    CSlowStream out;
    out.m_throwsAt = 2;
    try {
        newMessage()->store(out);
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "disk full");
    }
}

TEST(CMimeMessageTest, storesHeaderAndBodyAlone)
{
    const auto message = messageOf("", "body");
    CSlowStream header, body;
    message->storeHeader(header);
    message->storeBody(body);
    EXPECT_EQ(header.m_text, "MIME-Version: 1.0\r\n\r\n");
    EXPECT_EQ(body.m_text, "body");
}

TEST(CMimeMessageTest, isStoredByManyThreads)
{
    const auto message = messageOf("text/plain", "body");
    message->getHeaders()["Subject"] = L"\u00FC";
    const std::string expected = stored(*message);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&message, &expected] {
            for (int round = 0; round < 50; ++round)
                EXPECT_EQ(stored(*message), expected);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(CMimeMessageTest, headerLineKeepsAnASCIIValueHoweverLong)
{
    const kx::String value = repeated("=?utf-8?q?x?= \x7F", 200);
    EXPECT_EQ(norla::CMimeMessage::makeHeaderField("Name", value), "Name: " + value);
}

TEST(CMimeMessageTest, headerLineKeepsAnEmptyValue)
{
    EXPECT_EQ(norla::CMimeMessage::makeHeaderField("Name", ""), "Name: ");
}

TEST(CMimeMessageTest, headerLineEncodesAValueFromTheFirstCharacterOutsideASCIIOn)
{
    EXPECT_EQ(norla::CMimeMessage::makeHeaderField("A", L"\u0080"), "A: =?utf-8?q?=C2=80?=");
}

TEST(CMimeMessageTest, headerLineNeverEncodesTheName)
{
    EXPECT_EQ(norla::CMimeMessage::makeHeaderField(L"\u00DC", L"\u00FC"), L"\u00DC: =?utf-8?q?=C3=BC?=");
}

struct CWordRow {
    const char* name;
    kx::String text;
    kx::String words;
};

class CEncodedWordTest : public testing::TestWithParam<CWordRow> {};

TEST_P(CEncodedWordTest, encodesTheText)
{
    EXPECT_EQ(norla::CMimeMessage::toEncodedWord(GetParam().text), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(All, CEncodedWordTest,
    testing::ValuesIn(std::vector<CWordRow>{
        {"empty", "", ""},
        {"example", L"Gr\u00FC\u00DFe", "=?utf-8?q?Gr=C3=BC=C3=9Fe?="},
        {"lettersAndDigits", "AZaz09", "=?utf-8?q?AZaz09?="},
        {"neighboursOfLettersAndDigits", "@[`{/:", "=?utf-8?q?=40=5B=60=7B=2F=3A?="},
        {"blankAndUnderscore", "a b_c", "=?utf-8?q?a=20b=5Fc?="},
        {"ownSyntax", "=?", "=?utf-8?q?=3D=3F?="},
        {"lineEnd", "\r\n", "=?utf-8?q?=0D=0A?="},
        {"zero", kx::String(std::wstring(1, L'\0')), "=?utf-8?q?=00?="},
        {"twoBytes", L"\u0080\u07FF", "=?utf-8?q?=C2=80=DF=BF?="},
        {"threeBytes", L"\u0800\uFFFF", "=?utf-8?q?=E0=A0=80=EF=BF=BF?="},
        {"fourBytes", L"\U00010000\U0010FFFF", "=?utf-8?q?=F0=90=80=80=F4=8F=BF=BF?="},
        {"fortyFiveCharacters", repeated("a", 45), "=?utf-8?q?" + repeated("a", 45) + "?="},
        {"fortySixCharacters", repeated("a", 46), "=?utf-8?q?" + repeated("a", 46) + "?="},
        {"fortySevenCharacters", repeated("a", 47), "=?utf-8?q?" + repeated("a", 46) + "?=\r\n =?utf-8?q?a?="},
        {"manyWords", repeated("a", 93),
            "=?utf-8?q?" + repeated("a", 46) + "?=\r\n =?utf-8?q?" + repeated("a", 46) + "?=\r\n =?utf-8?q?a?="},
        {"longestWord", repeated("a", 45) + L"\U0001F680" + "b",
            "=?utf-8?q?" + repeated("a", 45) + "=F0=9F=9A=80?=\r\n =?utf-8?q?b?="},
        {"noCharacterIsSplit", repeated(L"\u20AC", 7),
            "=?utf-8?q?" + repeated("=E2=82=AC", 6) + "?=\r\n =?utf-8?q?=E2=82=AC?="},
        {"sixtyCharactersWithOneOutsideASCII", repeated("a", 30) + L"\u00FC" + repeated("b", 29),
            "=?utf-8?q?" + repeated("a", 30) + "=C3=BC" + repeated("b", 10) + "?=\r\n =?utf-8?q?" + repeated("b", 19)
                + "?="},
    }),
    [](const testing::TestParamInfo<CWordRow>& row) { return row.param.name; });

TEST(CMimeMessageTest, refusesToEncodeWhatHasNoUTF8Form)
{
    EXPECT_THROW(
        norla::CMimeMessage::toEncodedWord(kx::String(std::wstring(1, static_cast<wchar_t>(0x110000)))), kx::CError);
}

class CQuotedStringTest : public testing::TestWithParam<CWordRow> {};

TEST_P(CQuotedStringTest, quotesTheText)
{
    EXPECT_EQ(norla::CMimeMessage::toQuotedString(GetParam().text), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(All, CQuotedStringTest,
    testing::ValuesIn(std::vector<CWordRow>{
        {"empty", "", R"("")"},
        {"plain", "a b;c", R"("a b;c")"},
        {"backslash", R"(a\b)", R"("a\\b")"},
        {"doubleQuote", R"(a"b)", R"("a\"b")"},
        {"backslashBeforeDoubleQuote", R"(\")", R"("\\\"")"},
        {"carriageReturn", "a\rb", "\"a\\\rb\""},
        {"lineFeedAndTab", "a\n\tb", "\"a\n\tb\""},
        {"outsideASCII", L"\u00FC\U0001F680", L"\"\u00FC\U0001F680\""},
    }),
    [](const testing::TestParamInfo<CWordRow>& row) { return row.param.name; });

std::vector<std::string> linesOf(const norla::CNetHeaders& headers)
{
    std::vector<std::string> lines;
    for (const curl_slist* line = headers.getCurlList(); line; line = line->next)
        lines.emplace_back(line->data);
    return lines;
}

// Parameters.

struct CParameterCase {
    const char* name;
    kx::String value;
    const char* parameter;
};

void PrintTo(const CParameterCase& parameter, std::ostream* out)
{
    *out << parameter.name;
}

class CParameterTest : public testing::TestWithParam<CParameterCase> {};

TEST_P(CParameterTest, isWrittenAs)
{
    EXPECT_EQ(norla::CMimeMessage::makeParameter("filename", GetParam().value),
        kx::String::fromLatin1(std::string("filename") + GetParam().parameter));
}

INSTANTIATE_TEST_SUITE_P(, CParameterTest,
    testing::Values(CParameterCase{"ascii", "report.txt", "=\"report.txt\""}, CParameterCase{"empty", "", "=\"\""},
        CParameterCase{"blanks", "  a  b ", "=\"  a  b \""},
        CParameterCase{"quotesAndBackslashes", "a\"b\\c", "=\"a\\\"b\\\\c\""},
        CParameterCase{"whatEscapesHave", "100%'*+?=~", "=\"100%'*+?=~\""},
        CParameterCase{"outsideASCII", L"Gr\u00FC\u00DFe.pdf", "*=utf-8''Gr%C3%BC%C3%9Fe.pdf"},
        CParameterCase{"escapedBlanksAndSigns", L"\u00FC +%'*/\"\\~-._", "*=utf-8''%C3%BC%20%2B%25%27%2A%2F%22%5C~-._"},
        CParameterCase{"fourBytes", L"\U0001F680", "*=utf-8''%F0%9F%9A%80"},
        CParameterCase{"lineFeed", "a\nX: b", "*=utf-8''a%0AX%3A%20b"},
        CParameterCase{"carriageReturn", "a\r\nb", "*=utf-8''a%0D%0Ab"},
        CParameterCase{"tab", "a\tb", "*=utf-8''a%09b"},
        CParameterCase{"zero", kx::String(std::wstring(L"a\0b", 3)), "*=utf-8''a%00b"},
        CParameterCase{"unitSeparator", "a\x1F", "*=utf-8''a%1F"}, CParameterCase{"del", "a\x7F", "*=utf-8''a%7F"},
        CParameterCase{"encodedWord", "=?utf-8?q?x?=", "*=utf-8''%3D%3Futf-8%3Fq%3Fx%3F%3D"}),
    [](const auto& value) { return value.param.name; });

TEST(CMimeMessageTest, aLongParameterIsOnePiece)
{
    const std::string name(2000, 'x');
    EXPECT_EQ(norla::CMimeMessage::makeParameter("name", kx::String::fromLatin1(name) + L"\u00FC"),
        kx::String::fromLatin1("name*=utf-8''" + name + "%C3%BC"));
}

TEST(CMimeMessageTest, aParameterStaysAsItIsInAField)
{
    const kx::String value = "attachment; " + norla::CMimeMessage::makeParameter("filename", L"\u00FC\r\nX: 1");
    EXPECT_EQ(norla::CMimeMessage::makeHeaderField("Content-Disposition", value), "Content-Disposition: " + value);
}

TEST(CMimeMessageTest, refusesANameThatIsNoParameters)
{
    for (const kx::String& name :
        {kx::String(), kx::String("a b"), kx::String("a="), kx::String("a*"), kx::String("a'"), kx::String("a%"),
            kx::String("a;"), kx::String("a\n"), kx::String("a\""), kx::String("\x7F"), kx::String(L"\u00FC"),
            kx::String(std::wstring(1, L'\0')), kx::String(std::wstring(1, static_cast<wchar_t>(-1)))}) {
        EXPECT_THROW(norla::CMimeMessage::makeParameter(name, "value"), kx::CInvalidArgError) << name;
    }
    EXPECT_EQ(norla::CMimeMessage::makeParameter("a!#$&+-.^_`{|}~Z9", "v"), "a!#$&+-.^_`{|}~Z9=\"v\"");
}

TEST(CMimeMessageTest, refusesAParameterWithoutUTF8Form)
{
    EXPECT_THROW(norla::CMimeMessage::makeParameter("name", kx::String(std::wstring(1, static_cast<wchar_t>(0xD800)))),
        kx::CError);
}

TEST(CMimeMessageTest, addsItsFieldsUnencodedInTheOrderOfTheirNames)
{
    const auto message = newMessage("text/plain");
    message->getHeaders()["Subject"] = L"\u00FC";
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Z", "first");
    message->updateNetHeaders(*headers);
    EXPECT_EQ(linesOf(*headers),
        (std::vector<std::string>{"Z: first", "Content-Type: text/plain", "MIME-Version: 1.0", "Subject: \xC3\xBC"}));
}

using CMimeMessageRequestTest = CRequestFixture;

TEST_F(CMimeMessageRequestTest, isSentAsHeadersAndBody)
{
    const auto message = messageOf("text/plain", "the body");
    message->getHeaders()["Subject"] = L"\u00FC";
    server().onConnection().readHead().readBytes(8).send(ok(""));
    message->fillRequest(request());
    request().setHTTPMethod("PUT");
    performPath();
    const std::string sent = received();
    EXPECT_NE(sent.find("\r\nContent-Type: text/plain\r\nMIME-Version: 1.0\r\nSubject: \xC3\xBC\r\n"), sent.npos)
        << sent;
    EXPECT_NE(sent.find("\r\nContent-Length: 8\r\n"), sent.npos) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\nthe body")) << sent;
}

TEST_F(CMimeMessageRequestTest, addsToTheHeadersThatTheRequestHas)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Own", "1");
    request().setCustomHTTPHeaders(headers.get());
    newMessage()->fillRequest(request());
    EXPECT_EQ(request().getCustomHTTPHeaders(), headers);
    EXPECT_EQ(linesOf(*headers), (std::vector<std::string>{"X-Own: 1", "MIME-Version: 1.0"}));
}

TEST_F(CMimeMessageRequestTest, givesHeadersToARequestThatHasNone)
{
    newMessage()->fillRequest(request());
    ASSERT_TRUE(request().getCustomHTTPHeaders());
    EXPECT_EQ(linesOf(*request().getCustomHTTPHeaders()), std::vector<std::string>{"MIME-Version: 1.0"});
}

TEST_F(CMimeMessageRequestTest, sendsTheBodyAsItWasWhenTheRequestWasFilled)
{
    auto body = bufferOf("before");
    auto message = newMessage();
    message->setBody(body.get(), "");
    message->fillRequest(request());
    message = nullptr;
    body->getData()[0] = 'B';
    body = nullptr;
    server().onConnection().readHead().readBytes(6).send(ok(""));
    request().setHTTPMethod("PUT");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\nbefore"));
}

TEST_F(CMimeMessageRequestTest, sendsAnEmptyBodyForAMessageWithoutOne)
{
    server().onConnection().readHead().send(ok(""));
    newMessage()->fillRequest(request());
    request().setHTTPMethod("PUT");
    performPath();
    const std::string sent = received();
    EXPECT_NE(sent.find("\r\nContent-Length: 0\r\n"), sent.npos) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\n")) << sent;
}

} // namespace
