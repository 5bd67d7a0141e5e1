#include "norla/core/CSentHeaders.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using norla::CSentHeaders;
using Texts = std::vector<std::string>;

class CSentHeadersTest : public testing::Test {
protected:
    /// The options that the action sets.
    template <typename TAction>
    Texts optionsOf(TAction action)
    {
        m_calls.takeOptions();
        action();
        return m_calls.takeOptions();
    }

    Texts begin()
    {
        return optionsOf([this] { m_headers.begin(); });
    }

    Texts sendHarmlessOnly()
    {
        return optionsOf([this] { m_headers.sendHarmlessOnly(); });
    }

    void setCallers() { m_headers.setCallers(m_callers.get()); }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    CSentHeaders m_headers{m_handle};
    const kx::P<norla::CNetHeaders> m_callers = kx::newObj<norla::CNetHeaders>();
};

TEST_F(CSentHeadersTest, setNothingWithoutLines)
{
    EXPECT_EQ(begin(), Texts());
    EXPECT_EQ(sendHarmlessOnly(), Texts());
}

TEST_F(CSentHeadersTest, areTheCallersOwnListWithoutOthers)
{
    m_callers->add("A", "1");
    EXPECT_EQ(optionsOf([this] { setCallers(); }), Texts{"HTTPHEADER=[A: 1]"});
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_HTTPHEADER), m_callers->getCurlList());
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1]"});
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_HTTPHEADER), m_callers->getCurlList());
}

TEST_F(CSentHeadersTest, haveOwnLinesBehindTheCallers)
{
    m_callers->add("A", "1");
    setCallers();
    m_headers.setLine("Content-Type", "text/plain");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1, Content-Type: text/plain]"});
}

TEST_F(CSentHeadersTest, haveOwnLinesWithoutAnyOfTheCaller)
{
    m_headers.setLine("Content-Type", "text/plain");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[Content-Type: text/plain]"});
}

TEST_F(CSentHeadersTest, leaveOutLibcurlsOwnOfThatNameForAnEmptyValue)
{
    m_headers.setLine("Expect", "");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[Expect:]"});
}

TEST_F(CSentHeadersTest, setNothingBeforeATransferBegins)
{
    EXPECT_EQ(optionsOf([this] { m_headers.setLine("A", "1"); }), Texts());
    begin();
    EXPECT_EQ(optionsOf([this] { m_headers.removeLine("A"); }), Texts());
}

TEST_F(CSentHeadersTest, haveTheLinesThatTheCallerAddsLater)
{
    setCallers();
    m_headers.setLine("B", "2");
    begin();
    m_callers->add("A", "1");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1, B: 2]"});
}

TEST_F(CSentHeadersTest, haveTheCallersLineOfTwoOfOneName)
{
    m_callers->add("CONTENT-TYPE", "theirs");
    m_callers->add("content-type", "theirs too");
    setCallers();
    m_headers.setLine("Content-Type", "own");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[CONTENT-TYPE: theirs, content-type: theirs too]"});
}

TEST_F(CSentHeadersTest, haveTheCallersLineAlsoWhereItIsEmpty)
{
    m_callers->add("Expect", "");
    m_callers->addEmpty("Content-Type");
    setCallers();
    m_headers.setLine("Content-Type", "own");
    m_headers.setLine("Expect", "100-continue");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[Expect: , Content-Type;]"});
}

TEST_F(CSentHeadersTest, haveTheOwnLineWhereItIsToWin)
{
    m_callers->add("content-type", "theirs");
    m_callers->add("A", "1");
    m_callers->addEmpty("Content-Type");
    setCallers();
    m_headers.setLine("Content-Type", "own", CSentHeaders::Precedence::Own);
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1, Content-Type: own]"});
}

TEST_F(CSentHeadersTest, haveOneOwnLineOfAName)
{
    m_headers.setLine("A", "1");
    m_headers.setLine("a", "2");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[a: 2]"});
}

TEST_F(CSentHeadersTest, areTheCallersListAgainWhenTheLastOwnLineIsRemoved)
{
    m_callers->add("B", "1");
    setCallers();
    m_headers.setLine("A", "1");
    begin();
    m_headers.removeLine("a");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[B: 1]"});
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_HTTPHEADER), m_callers->getCurlList());
}

TEST_F(CSentHeadersTest, areNoneAgainWhenTheLastOwnLineIsRemoved)
{
    m_headers.setLine("A", "1");
    begin();
    m_headers.removeLine("A");
    m_headers.removeLine("B");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=null"});
    EXPECT_EQ(begin(), Texts());
}

TEST_F(CSentHeadersTest, haveTheListThatTheCallerSetsAsAnOption)
{
    m_callers->add("A", "1");
    m_headers.noticePointer(CURLOPT_QUOTE, nullptr);
    m_headers.noticePointer(CURLOPT_HTTPHEADER, m_callers->getCurlList());
    EXPECT_EQ(begin(), Texts());
    m_headers.setLine("B", "2");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1, B: 2]"});
    m_headers.removeLine("B");
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[A: 1]"});
    m_headers.setLine("B", "2");
    m_headers.setCallers(nullptr);
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[B: 2]"});
}

TEST_F(CSentHeadersTest, refuseLineEnds)
{
    EXPECT_THROW(m_headers.setLine("A\r", "1"), kx::CInvalidArgError);
    EXPECT_THROW(m_headers.setLine("A", "1\n"), kx::CInvalidArgError);
    EXPECT_THROW(m_headers.setLine("A", std::string_view("1\0", 2)), kx::CInvalidArgError);
    EXPECT_EQ(begin(), Texts());
}

TEST_F(CSentHeadersTest, areForgottenAtAReset)
{
    m_callers->add("A", "1");
    setCallers();
    m_headers.setLine("B", "2");
    m_headers.forgetOptions();
    EXPECT_EQ(m_headers.getCallers(), nullptr);
    EXPECT_EQ(begin(), Texts());
}

TEST_F(CSentHeadersTest, stayWhenLibcurlRefusesOthers)
{
    setCallers();
    m_calls.failOption(CURLOPT_HTTPHEADER);
    EXPECT_THROW(m_headers.setCallers(nullptr), norla::CCURLError);
    EXPECT_EQ(m_headers.getCallers(), m_callers);
}

TEST_F(CSentHeadersTest, canBeThoseThatTellNoSecret)
{
    m_callers->add("X-Api-Key", "secret");
    m_callers->add("ACCEPT", "text/plain");
    m_callers->addEmpty("Authorization");
    m_callers->addEmpty("If-None-Match");
    m_callers->add("Host", "first");
    setCallers();
    EXPECT_EQ(sendHarmlessOnly(), Texts{"HTTPHEADER=[ACCEPT: text/plain, If-None-Match;]"});
}

TEST_F(CSentHeadersTest, tellNoSecretOfOwnLinesEither)
{
    m_headers.setLine("Authorization", "Bearer secret");
    m_headers.setLine("Content-Type", "text/plain");
    begin();
    EXPECT_EQ(sendHarmlessOnly(), Texts{"HTTPHEADER=[Content-Type: text/plain]"});
}

TEST_F(CSentHeadersTest, tellNoSecretBehindALineEnd)
{
    m_callers->add("Accept", "*/*\r\nX-Api-Key: secret");
    setCallers();
    EXPECT_EQ(sendHarmlessOnly(), Texts{"HTTPHEADER=null"});
}

TEST_F(CSentHeadersTest, tellEverythingInTheNextTransfer)
{
    m_callers->add("X-Api-Key", "secret");
    setCallers();
    begin();
    sendHarmlessOnly();
    EXPECT_EQ(begin(), Texts{"HTTPHEADER=[X-Api-Key: secret]"});
}

} // namespace
