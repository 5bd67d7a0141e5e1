#include "norla/pool/CCallWatch.h"

#include "tests/norla/core/COpenSocketsFixture.h"

#include <optional>

namespace {

using norla::CCallWatch;

class CCallWatchTest : public COpenSocketsFixture {
protected:
    ~CCallWatchTest() override { norla::COpenSockets::onClose(&m_sockets, m_socket); }

    void beginCall() { m_call.emplace(m_watch, m_sockets); }
    void endCall() { m_call.reset(); }
    bool isEnded() { return isAtItsEnd(m_socket); }

    CCallWatch m_watch;

private:
    const int m_socket = connectedSocket();
    std::optional<CCallWatch::CCall> m_call;
};

TEST_F(CCallWatchTest, endsACallThatLastsFromOneLookToTheNext)
{
    beginCall();
    m_watch.endLongCalls();
    EXPECT_FALSE(isEnded());
    m_watch.endLongCalls();
    EXPECT_TRUE(isEnded());
}

TEST_F(CCallWatchTest, leavesACallAloneThatHasBegunSinceTheLastLook)
{
    beginCall();
    m_watch.endLongCalls();
    endCall();
    beginCall();
    m_watch.endLongCalls();
    EXPECT_FALSE(isEnded());
}

TEST_F(CCallWatchTest, leavesSocketsAloneThatNoCallIsAt)
{
    beginCall();
    m_watch.endLongCalls();
    endCall();
    m_watch.endLongCalls();
    m_watch.endLongCalls();
    EXPECT_FALSE(isEnded());
}

TEST_F(CCallWatchTest, endsEachCallBehindOneThatWasLong)
{
    norla::COpenSockets others;
    {
        const CCallWatch::CCall call(m_watch, others);
        m_watch.endLongCalls();
        m_watch.endLongCalls();
    }
    EXPECT_FALSE(isEnded());
    beginCall();
    EXPECT_TRUE(isEnded());
}

} // namespace
