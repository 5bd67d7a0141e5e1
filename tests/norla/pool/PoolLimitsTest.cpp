// Far more transfers than a process may have descriptors.
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"
#include "tests/support/CPathServer.h"
#include "tests/support/systemError.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using norla::CTransfer;
using norla::CTransferPool;

/// A CPathServer in a process of its own, whose descriptors are not ours.
class CForeignServer {
public:
    explicit CForeignServer(size_t ports)
    {
        support::CPathServer server({{"/", support::CPathServer::answer("200 OK", "hello")}}, ports);
        for (size_t port = 0; port < ports; ++port)
            m_urls.push_back(server.url("/", port));
        std::array<int, 2> ends{};
        support::checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
        m_ours = support::CDescriptor(ends[1]);
        const support::CDescriptor theirs(ends[0]);
        m_process = support::checked(fork(), "fork");
        if (m_process == 0)
            serve(server, theirs.get());
    }
    CForeignServer(const CForeignServer&) = delete;
    CForeignServer& operator=(const CForeignServer&) = delete;
    ~CForeignServer()
    {
        m_ours.close();
        waitpid(m_process, nullptr, 0);
    }

    /// As many as there are ports.
    const std::vector<std::string>& urls() const { return m_urls; }

private:
    /// Until the other end of the pipe is closed.
    [[noreturn]] void serve(support::CPathServer& server, int pipe)
    {
        m_ours.close();
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        server.start();
        char none = 0;
        while (read(pipe, &none, 1) == -1 && errno == EINTR) {
        }
        _exit(0);
    }

    std::vector<std::string> m_urls;
    support::CDescriptor m_ours;
    pid_t m_process = -1;
};

class PoolLimitsTest : public testing::Test {
protected:
    PoolLimitsTest() { getrlimit(RLIMIT_NOFILE, &m_before); }
    ~PoolLimitsTest() override { setrlimit(RLIMIT_NOFILE, &m_before); }

    /// How ten thousand transfers, all started at once, have ended: how often each message came.
    std::map<std::string, int> runTransfers(const CTransferPool::Options& options, size_t ports)
    {
        constexpr int count = 10'000;
        const CForeignServer server(ports);
        rlimit few = m_before;
        few.rlim_cur = 1024;
        setrlimit(RLIMIT_NOFILE, &few);
        const auto pool = kx::newObj<CTransferPool>(options);
        CTransfer::Options each;
        each.onDone = [this](CTransfer& transfer) { note(transfer); };
        for (int number = 0; number < count; ++number) {
            const auto request = kx::newObj<norla::CNetRequest>();
            request->setURL(kx::String::fromUTF8(server.urls()[static_cast<size_t>(number) % ports]));
            pool->start(request.get(), each);
        }
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(60), [this] { return m_ended == count; });
        return m_ends;
    }

    static inline const std::map<std::string, int> allSucceeded{{"success", 10'000}};

private:
    void note(const CTransfer& transfer)
    {
        const kx::P<kx::CError> error = transfer.getError();
        const std::lock_guard lock(m_mutex);
        ++m_ends[error ? error->getMessage().toUTF8() : "success"];
        ++m_ended;
        m_changed.notify_all();
    }

    rlimit m_before{};
    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    int m_ended = 0;
    std::map<std::string, int> m_ends;
};

TEST_F(PoolLimitsTest, tenThousandTransfersToOneHostSucceedWithAThousandDescriptors)
{
    EXPECT_EQ(runTransfers({}, 1), allSucceeded);
}

TEST_F(PoolLimitsTest, tenThousandTransfersToManyHostsSucceedWithAThousandDescriptors)
{
    EXPECT_EQ(runTransfers({}, 2000), allSucceeded);
}

TEST_F(PoolLimitsTest, tenThousandTransfersOnSeveralThreadsSucceedWithAThousandDescriptors)
{
    EXPECT_EQ(runTransfers({.threads = 8}, 2000), allSucceeded);
}

} // namespace
