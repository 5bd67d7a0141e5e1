#include "norla/http/util.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <thread>
#include <vector>

namespace {

struct CStatusLineRow {
    const char* name;
    kx::String line;
    int code;
    kx::String info;
};

class StatusLineTest : public testing::TestWithParam<CStatusLineRow> {};

TEST_P(StatusLineTest, isParsed)
{
    int code = -2;
    kx::String info = "old";
    norla::parseHTTPStatusLine(GetParam().line, code, info);
    EXPECT_EQ(code, GetParam().code);
    EXPECT_EQ(info, GetParam().info);
}

TEST_P(StatusLineTest, givesItsCodeAlone)
{
    EXPECT_EQ(norla::getStatusCodeFromHTTPStatusLine(GetParam().line), GetParam().code);
}

TEST_P(StatusLineTest, givesItsReasonAlone)
{
    EXPECT_EQ(norla::getInfoFromHTTPStatusLine(GetParam().line), GetParam().info);
}

INSTANTIATE_TEST_SUITE_P(All, StatusLineTest,
    testing::ValuesIn(std::vector<CStatusLineRow>{
        {"usual", "HTTP/1.1 200 OK", 200, "OK"},
        {"withLineEnd", "HTTP/1.1 404 Not Found\r\n", 404, "Not Found"},
        {"withoutReason", "HTTP/1.0 204", 204, ""},
        {"withBlankReason", "HTTP/2 200 ", 200, ""},
        {"lowerCase", "http/1.0 301 Moved", 301, "Moved"},
        {"mixedCase", "hTtP/1.0 301 Moved", 301, "Moved"},
        {"signedCode", "HTTP/1.1 -5 Odd", -5, "Odd"},
        {"plusSign", "HTTP/1.1 +200 OK", 200, "OK"},
        {"beyond32Bits", "HTTP/1.1 4294967496 OK", 200, "OK"}, // kept in 32 bits
        {"beyond31Bits", "HTTP/1.1 4294967295 OK", -1, "OK"},
        {"reasonWithBlanks", "HTTP/1.1 200   very  well ", 200, "very  well"},
    }),
    [](const testing::TestParamInfo<CStatusLineRow>& row) { return row.param.name; });

struct CBadLineRow {
    const char* name;
    kx::String line;
};

class BadStatusLineTest : public testing::TestWithParam<CBadLineRow> {};

TEST_P(BadStatusLineTest, isQuotedInTheError)
{
    int code = -2;
    kx::String info = "old";
    try {
        norla::parseHTTPStatusLine(GetParam().line, code, info);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Invalid HTTP status line: '" + GetParam().line + "'");
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
        EXPECT_TRUE(error.getProps().getMap().empty());
        EXPECT_EQ(error.getCause(), nullptr);
    }
    EXPECT_EQ(code, -2);
    EXPECT_EQ(info, "old");
}

TEST_P(BadStatusLineTest, failsForCodeAndReasonAlone)
{
    EXPECT_THROW(norla::getStatusCodeFromHTTPStatusLine(GetParam().line), kx::CError);
    EXPECT_THROW(norla::getInfoFromHTTPStatusLine(GetParam().line), kx::CError);
}

INSTANTIATE_TEST_SUITE_P(All, BadStatusLineTest,
    testing::ValuesIn(std::vector<CBadLineRow>{
        {"empty", ""},
        {"noVersion", "HTTP 200 OK"},
        {"almostItsProtocol", "HTTQ/1.1 200 OK"},
        {"controlForSlash", "HTTP\0171.1 200 OK"}, // a slash but for one bit, as capitals are small letters
        {"otherProtocol", "ICY 200 OK"},
        {"twoBlanks", "HTTP/1.1  200 OK"},
        {"noBlank", "HTTP/1.1"},
        {"tab", "HTTP/1.1\t200"},
        {"noNumber", "HTTP/1.1 abc OK"},
        {"numberWithMore", "HTTP/1.1 200x OK"},
        {"codeEndsInLineEnd", "HTTP/1.1 200\r\n"},
        {"tooLarge", "HTTP/1.1 99999999999999999999 OK"},
        {"leadingBlank", " HTTP/1.1 200 OK"},
    }),
    [](const testing::TestParamInfo<CBadLineRow>& row) { return row.param.name; });

/// What all the functions answer to questions in which the number occurs.
kx::TArray<kx::String> answersFor(int number)
{
    const kx::String digits = kx::toString(1000 + number);
    kx::TMap<kx::String, kx::String> map;
    norla::decodeURLParams("key=a+b%20" + digits, map);
    kx::CProps props;
    props.set("responseCodeDomain", "http");
    props.set("responseCode", kx::toString(500 + number));
    const kx::CError error("message", "curl", CURLE_HTTP_RETURNED_ERROR, props);
    return {norla::urlEscape("a b/" + digits, false), norla::urlUnescape("a%20b%2f" + digits, false),
        norla::formURLEncode("a b/" + digits, true), norla::formURLEncode(map, true), norla::formURLEncode(props, true),
        norla::encodeURLParams(map),
        kx::toString(norla::parseTimestamp("Sun, 06 Nov " + digits.replaceAll("100", "200") + " 08:49:37 GMT")
                         .getMicroseconds()),
        kx::toString(
            norla::isValidEmailAddress(kx::String::fromLatin1(number % 2 == 0 ? "me@example.org" : "me.example.org"))),
        kx::toString(norla::isNetworkOrServiceDownError(error)), kx::toString(norla::getHTTPStatusCodeFromError(error)),
        norla::getInfoFromHTTPStatusLine("HTTP/1.1 200 " + digits),
        kx::toString(norla::getStatusCodeFromHTTPStatusLine("HTTP/1.1 " + digits + " OK"))};
}

TEST(HTTPUtilTest, answersEightThreadsAtOnceAsItAnswersOne)
{
    constexpr int threadCount = 8;
    std::latch start(threadCount);
    std::array<int, threadCount> wrong{};
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back(
            [&start, &count = wrong[static_cast<size_t>(number)], number, expected = answersFor(number)] {
                start.arrive_and_wait();
                for (int round = 0; round < 500; ++round)
                    count += answersFor(number) == expected ? 0 : 1;
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, (std::array<int, threadCount>{}));
}

} // namespace
