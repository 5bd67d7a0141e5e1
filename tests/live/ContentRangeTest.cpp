// CHTTPContentRange reads what nginx answers to requests for a part of a file.
#include "norla/http/CHTTPContentRange.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

namespace {

struct CExpectedRange {
    long long first;
    long long last;
    long long total;
};

class LiveContentRangeTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }

    static void expectRange(const norla::CNetRequest& request, const CExpectedRange& expected)
    {
        const auto range = norla::CHTTPContentRange::parse(request.getResponseHeaderMap().at("content-range"));
        EXPECT_EQ(range->getUnit(), "bytes");
        EXPECT_EQ(range->getFirst(), expected.first);
        EXPECT_EQ(range->getLast(), expected.last);
        EXPECT_EQ(range->getTotal(), expected.total);
    }

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(LiveContentRangeTest, tellsTheBytesThatCame)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(live::bodyOf(*request), "3456");
    expectRange(*request, {.first = 3, .last = 6, .total = 10});
}

TEST_F(LiveContentRangeTest, tellsTheOneByteThatCame)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setRange(0, 1);
    request->perform();
    expectRange(*request, {.first = 0, .last = 0, .total = 10});
}

TEST_F(LiveContentRangeTest, tellsTheEndOfAnOpenRange)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setRange(7, -1);
    request->perform();
    expectRange(*request, {.first = 7, .last = 9, .total = 10});
}

TEST_F(LiveContentRangeTest, tellsTheBytesFromTheEnd)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setOptionString(CURLOPT_RANGE, "-3");
    request->perform();
    expectRange(*request, {.first = 7, .last = 9, .total = 10});
}

TEST_F(LiveContentRangeTest, tellsThatTheFileEndsEarlier)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setRange(8, 100);
    request->perform();
    EXPECT_EQ(live::bodyOf(*request), "89");
    expectRange(*request, {.first = 8, .last = 9, .total = 10});
}

TEST_F(LiveContentRangeTest, tellsTheSizeWhenNothingIsThere)
{
    const auto request = live::requestFor(server().url("/digits.txt"));
    request->setRange(100, 10);
    ASSERT_NE(live::failureOf(*request), nullptr);
    EXPECT_EQ(request->getResponseCode(), 416);
    expectRange(*request, {.first = -1, .last = -1, .total = 10});
}

TEST_F(LiveContentRangeTest, countsBeyond32Bits)
{
    constexpr long long size = 5LL << 30;
    const auto request = live::requestFor(server().url(server().big(size)));
    request->setRange(size - 2, 2);
    request->perform();
    EXPECT_EQ(live::bodyOf(*request), std::string(2, '\0'));
    expectRange(*request, {.first = size - 2, .last = size - 1, .total = size});
}

TEST_F(LiveContentRangeTest, isTheSameOverHTTP2)
{
    const auto request = live::requestFor(server().httpsURL("/digits.txt"));
    request->setRootCertBundlePath(
        norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_HTTP_VERSION), CURL_HTTP_VERSION_2_0);
    expectRange(*request, {.first = 3, .last = 6, .total = 10});
}

TEST_F(LiveContentRangeTest, isNotThereWhenTheWholeFileCame)
{
    const auto request = live::requestFor(server().url("/noranges/digits.txt"));
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(request->getResponseHeaderMap().count("content-range"), 0u);
}

} // namespace
