#include "kx/threads/CPosixSelect.h"

#include "kx/base/CError.h"
#include "tests/support/loopback.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

class CPosixSelectTest : public testing::Test {
protected:
    CPosixSelectTest() { EXPECT_EQ(pipe(m_pipe), 0); }
    ~CPosixSelectTest() override
    {
        close(m_pipe[0]);
        close(m_pipe[1]);
    }

    int selectReadable(int timeoutMs)
    {
        FD_ZERO(&m_readable);
        FD_SET(m_pipe[0], &m_readable);
        return kx::CPosixSelect::select(m_pipe[0] + 1, &m_readable, nullptr, nullptr, timeoutMs);
    }

    int m_pipe[2] = {-1, -1};
    fd_set m_readable;
};

TEST_F(CPosixSelectTest, tellsWhatIsReady)
{
    ASSERT_EQ(write(m_pipe[1], "x", 1), 1);
    EXPECT_EQ(selectReadable(-1), 1);
    EXPECT_TRUE(FD_ISSET(m_pipe[0], &m_readable));
}

TEST_F(CPosixSelectTest, onlyLooksWithATimeOfZero)
{
    EXPECT_EQ(selectReadable(0), 0);
}

TEST_F(CPosixSelectTest, waitsAtMostTheTimeItIsGiven)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(selectReadable(20), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST_F(CPosixSelectTest, answersNothingWhenASignalComesInBetween)
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction previous {};
    sigaction(SIGALRM, &action, &previous);
    const itimerval soon{{0, 0}, {0, 20'000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    FD_ZERO(&m_readable);
    FD_SET(m_pipe[0], &m_readable);
    fd_set writable = m_readable;
    fd_set exceptional = m_readable;
    EXPECT_EQ(kx::CPosixSelect::select(m_pipe[0] + 1, &m_readable, &writable, &exceptional, -1), 0);
    sigaction(SIGALRM, &previous, nullptr);
    EXPECT_FALSE(FD_ISSET(m_pipe[0], &m_readable));
    EXPECT_FALSE(FD_ISSET(m_pipe[0], &writable));
    EXPECT_FALSE(FD_ISSET(m_pipe[0], &exceptional));
}

// The signal ends the wait, which would be no wait without the whole seconds.
TEST_F(CPosixSelectTest, waitsWholeSecondsToo)
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction previous {};
    sigaction(SIGALRM, &action, &previous);
    const itimerval soon{{0, 0}, {0, 20'000}};
    const auto start = std::chrono::steady_clock::now();
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(selectReadable(60'000), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15));
    sigaction(SIGALRM, &previous, nullptr);
}

TEST_F(CPosixSelectTest, tellsWhatCanBeWritten)
{
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(m_pipe[1], &writable);
    EXPECT_EQ(kx::CPosixSelect::select(m_pipe[1] + 1, nullptr, &writable, nullptr, 0), 1);
    EXPECT_TRUE(FD_ISSET(m_pipe[1], &writable));
}

// A TCP connection with urgent data.
TEST_F(CPosixSelectTest, tellsWhatIsExceptional)
{
    const support::CDescriptor listener = support::listenOnLoopback();
    const support::CDescriptor sender = support::connectToLoopback(support::portOf(listener.get()));
    const support::CDescriptor receiver(accept(listener.get(), nullptr, nullptr));
    ASSERT_EQ(send(sender.get(), "x", 1, MSG_OOB), 1);
    fd_set exceptional;
    FD_ZERO(&exceptional);
    FD_SET(receiver.get(), &exceptional);
    EXPECT_EQ(kx::CPosixSelect::select(receiver.get() + 1, nullptr, nullptr, &exceptional, 10'000), 1);
    EXPECT_TRUE(FD_ISSET(receiver.get(), &exceptional));
}

TEST_F(CPosixSelectTest, namesTheReasonForABadDescriptor)
{
    close(m_pipe[0]);
    try {
        selectReadable(0);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Waiting for descriptors has failed: Bad file descriptor.");
    }
}

} // namespace
