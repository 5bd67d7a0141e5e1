#include "kx/threads/CPosixSelect.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
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
    EXPECT_EQ(selectReadable(-1), 0);
    sigaction(SIGALRM, &previous, nullptr);
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
