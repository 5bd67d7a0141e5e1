#include "norla/core/CResponse.h"

#include "norla/core/CNetStringList.h"
#include "norla/core/CRequestURL.h"
#include "tests/support/CLogRecorder.h"

#include <gtest/gtest.h>

namespace {

using norla::CRequestURL;
using norla::CResponse;

/// Keeps what it gets.
class CKeepingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    void begin() override { ++m_begins; }

    int write(const unsigned char* data, int size, int responseCode,
        const norla::CNetRequest::HeaderMap& responseHeaders) override
    {
        m_body.append(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        m_codes.push_back(responseCode);
        m_headers = responseHeaders;
        return size;
    }

    int m_begins = 0;
    std::string m_body;
    std::vector<int> m_codes;
    norla::CNetRequest::HeaderMap m_headers;
};

class CResponseTest : public testing::Test {
protected:
    void take(std::initializer_list<std::string_view> lines, const CRequestURL& url)
    {
        for (const std::string_view line : lines)
            m_response.takeLine(line, url);
    }

    void takeBody(std::string_view bytes, const CRequestURL& url)
    {
        m_response.takeBody(
            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()), url, "");
    }

    std::vector<kx::String> lines() const
    {
        std::vector<kx::String> texts;
        for (const auto line = m_response.getLines()->createIterator(); line->next();)
            texts.push_back(line->getCurrent());
        return texts;
    }

    std::string defaultBody() const
    {
        const auto& buffer = *m_response.getDefaultBuffer();
        return {reinterpret_cast<const char*>(buffer.getData()), buffer.getSize()};
    }

    const CRequestURL m_http{"http://host/"};
    const CRequestURL m_ftp{"ftp://host/"};
    const CRequestURL m_mail{"smtp://host/"};
    const kx::P<CKeepingSink> m_sink = kx::newObj<CKeepingSink>();
    CResponse m_response;
};

TEST_F(CResponseTest, keepsEveryLine)
{
    take({"HTTP/1.1 200 OK\r\n", "A: 1\r\n", "\r\n"}, m_http);
    EXPECT_EQ(lines(), (std::vector<kx::String>{"HTTP/1.1 200 OK\r\n", "A: 1\r\n", "\r\n"}));
}

TEST_F(CResponseTest, mapsTheHeadersOfTheLastResponse)
{
    take({"HTTP/1.1 302 Found\r\n", "A: 1\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "B: 2\r\n", "\r\n"}, m_http);
    EXPECT_EQ(m_response.getHeaderMap(), (norla::CNetRequest::HeaderMap{{"b", "2"}}));
}

TEST_F(CResponseTest, mapsNoLinesOfOtherProtocols)
{
    take({"220 Ready: now\r\n"}, m_ftp);
    EXPECT_TRUE(m_response.getHeaderMap().empty());
    EXPECT_EQ(lines(), std::vector<kx::String>{"220 Ready: now\r\n"});
}

TEST_F(CResponseTest, leavesOutALineThatIsNotText)
{
    EXPECT_THROW(m_response.takeLine("A: \xFF\r\n", m_http), kx::CError);
    EXPECT_TRUE(lines().empty());
}

TEST_F(CResponseTest, readsTheStatusWhateverBytesItsReasonHas)
{
    m_response.setSink(m_sink.get());
    take({"HTTP/1.1 302 Found\r\n", "A: 1\r\n", "\r\n"}, m_http);
    EXPECT_THROW(m_response.takeLine("HTTP/1.1 200 D\xE9j\xE0\r\n", m_http), kx::CError);
    take({"B: 2\r\n", "\r\n"}, m_http);
    takeBody("x", m_http);
    EXPECT_EQ(m_sink->m_codes, std::vector<int>{200});
    EXPECT_EQ(m_sink->m_headers, (norla::CNetRequest::HeaderMap{{"b", "2"}}));
    EXPECT_EQ(lines(), (std::vector<kx::String>{"HTTP/1.1 302 Found\r\n", "A: 1\r\n", "\r\n", "B: 2\r\n", "\r\n"}));
}

TEST_F(CResponseTest, givesTheSinkBodyStatusAndHeaders)
{
    m_response.setSink(m_sink.get());
    take({"HTTP/1.1 206 Part\r\n", "A: 1\r\n", "\r\n"}, m_http);
    takeBody("one", m_http);
    takeBody("two", m_http);
    EXPECT_EQ(m_sink->m_body, "onetwo");
    EXPECT_EQ(m_sink->m_codes, (std::vector<int>{206, 206}));
    EXPECT_EQ(m_sink->m_headers.at("a"), "1");
}

TEST_F(CResponseTest, hasNoStatusOfOtherProtocols)
{
    m_response.setSink(m_sink.get());
    take({"150 Here it comes\r\n"}, m_ftp);
    takeBody("x", m_ftp);
    EXPECT_EQ(m_sink->m_codes, std::vector<int>{-1});
}

TEST_F(CResponseTest, logsAStatusLineWithoutSenseOnce)
{
    const support::CLogRecorder log;
    m_response.setSink(m_sink.get());
    take({"HTTP/1.1 x\r\n"}, m_http);
    takeBody("x", m_http);
    takeBody("y", m_http);
    EXPECT_EQ(m_sink->m_codes, (std::vector<int>{0, 0}));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_NE(log.lines()[0].find("(statusLine: 'HTTP/1.1 x', method: 'GET', URL: 'http://host/)"), std::string::npos)
        << log.lines()[0];
}

TEST_F(CResponseTest, discardsTheBodyWithoutASink)
{
    m_response.setSink(nullptr);
    takeBody("x", m_http);
    EXPECT_EQ(defaultBody(), "");
    EXPECT_FALSE(m_response.hasDefaultSink());
}

TEST_F(CResponseTest, keepsTheBodyItselfAtFirst)
{
    EXPECT_TRUE(m_response.hasDefaultSink());
    take({"HTTP/1.1 200 OK\r\n"}, m_http);
    takeBody("body", m_http);
    EXPECT_EQ(defaultBody(), "body");
}

TEST_F(CResponseTest, keepsTheBodyItselfAgain)
{
    m_response.setSink(m_sink.get());
    m_response.setDefaultSink();
    take({"HTTP/1.1 200 OK\r\n"}, m_http);
    takeBody("body", m_http);
    EXPECT_EQ(defaultBody(), "body");
}

TEST_F(CResponseTest, forgetsEverythingWhenATransferBegins)
{
    m_response.setSink(m_sink.get());
    take({"HTTP/1.1 404 No\r\n", "A: 1\r\n", "\r\n"}, m_http);
    takeBody("x", m_http);
    m_response.begin();
    EXPECT_TRUE(lines().empty());
    EXPECT_TRUE(m_response.getHeaderMap().empty());
    take({"HTTP/1.1 200 OK\r\n"}, m_http);
    takeBody("y", m_http);
    EXPECT_EQ(m_sink->m_codes, (std::vector<int>{404, 200}));
}

TEST_F(CResponseTest, leavesTheOldLinesToWhoHasThem)
{
    take({"HTTP/1.1 200 OK\r\n"}, m_http);
    const kx::P<norla::CNetStringList> old(m_response.getLines());
    m_response.begin();
    EXPECT_TRUE(old->createIterator()->next());
    EXPECT_NE(old.get(), m_response.getLines());
}

TEST_F(CResponseTest, emptiesTheDefaultBuffer)
{
    takeBody("a long body", m_ftp);
    m_response.begin();
    takeBody("new", m_ftp);
    EXPECT_EQ(defaultBody(), "new");
}

TEST_F(CResponseTest, letsTheSinkBegin)
{
    m_response.setSink(m_sink.get());
    m_response.begin();
    EXPECT_EQ(m_sink->m_begins, 0);
    m_response.beginBody();
    EXPECT_EQ(m_sink->m_begins, 1);
}

TEST_F(CResponseTest, explainsAnHTTPErrorByItsBody)
{
    take({"HTTP/1.1 404 No\r\n", "\r\n"}, m_http);
    takeBody("no such page", m_http);
    EXPECT_EQ(m_response.getServerMessage("http", 404), "no such page");
    EXPECT_EQ(m_response.getServerMessage("ftp", 550), "");
}

TEST_F(CResponseTest, explainsAMailErrorByTheLastLine)
{
    take({"250 fine\r\n", "550 no such user\r\n"}, m_mail);
    EXPECT_EQ(m_response.getServerMessage("smtp", 550), "550 no such user\r\n");
    EXPECT_EQ(m_response.getServerMessage("smtp", 0), "");
}

TEST_F(CResponseTest, keepsTheLastRefusalOfAMailServer)
{
    take({"550 no such user\r\n", "221 bye\r\n"}, m_mail);
    EXPECT_EQ(m_response.getRefusal(), "550 no such user");
    m_response.begin();
    EXPECT_EQ(m_response.getRefusal(), "");
}

TEST_F(CResponseTest, takesRepliesOfMailServersInAnyEncodingForPeople)
{
    EXPECT_THROW(m_response.takeLine("550 gr\xFC\xDF\x1B[2J\r\n", m_mail), kx::CError);
    EXPECT_EQ(m_response.getRefusal(), L"550 gr\u00FC\u00DF?[2J");
}

} // namespace
