#include "norla/core/CSigPipeBlock.h"

#include "tests/norla/core/CRequestFixture.h"

#include <array>
#include <csignal>
#include <optional>

namespace {

bool isBlocked()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

bool isPending()
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST(CSigPipeBlockTest, blocksTheSignalWhileItLives)
{
    EXPECT_FALSE(isBlocked());
    {
        const norla::CSigPipeBlock block;
        EXPECT_TRUE(isBlocked());
    }
    EXPECT_FALSE(isBlocked());
}

/// Leaves bits behind in the memory that the next function called has for its variables.
[[gnu::noinline]] void fillTheStack()
{
    std::array<unsigned char, 4096> bytes;
    bytes.fill(0xFF);
    asm volatile("" : : "m"(bytes)); // somebody may look at them
}

TEST(CSigPipeBlockTest, blocksNoOtherSignal)
{
    fillTheStack();
    const norla::CSigPipeBlock block;
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD, SIGUSR1})
        EXPECT_EQ(sigismember(&mask, signal), 0) << signal;
}

TEST(CSigPipeBlockTest, takesAwayASignalThatCame)
{
    {
        const norla::CSigPipeBlock block;
        raise(SIGPIPE);
        EXPECT_TRUE(isPending());
    }
    EXPECT_FALSE(isPending()); // and the process lives
}

TEST(CSigPipeBlockTest, nests)
{
    const norla::CSigPipeBlock outer;
    {
        const norla::CSigPipeBlock inner;
        raise(SIGPIPE);
    }
    EXPECT_TRUE(isBlocked());
    EXPECT_TRUE(isPending()); // left to the outer one
}

TEST(CSigPipeBlockTest, leavesASignalAloneThatItsOwnerBlocked)
{
    sigset_t sigPipe;
    sigemptyset(&sigPipe);
    sigaddset(&sigPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigPipe, nullptr);
    raise(SIGPIPE);
    {
        const norla::CSigPipeBlock block;
    }
    EXPECT_TRUE(isBlocked());
    EXPECT_TRUE(isPending());
    const timespec atOnce{};
    sigtimedwait(&sigPipe, nullptr, &atOnce);
    pthread_sigmask(SIG_UNBLOCK, &sigPipe, nullptr);
}

class CRaisingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_wasBlocked = isBlocked();
        raise(SIGPIPE); // as a write to a connection that the peer has closed does
        return size;
    }

    bool m_wasBlocked = false;
};

class CSigPipeTransferTest : public CRequestFixture {};

TEST_F(CSigPipeTransferTest, survivesTheSignal)
{
    const auto sink = kx::newObj<CRaisingSink>();
    answer(ok("x"));
    request().setReceiveDataSink(sink.get());
    performPath();
    EXPECT_TRUE(sink->m_wasBlocked);
    EXPECT_FALSE(isBlocked());
    EXPECT_FALSE(isPending());
}

} // namespace
