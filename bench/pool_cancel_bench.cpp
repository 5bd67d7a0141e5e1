// How long it takes until a transfer that is cancelled has ended, in each of the states in which that finds it.
#include "bench/CLoopbackServerProcess.h"
#include "bench/compare.h"
#include "bench/cores.h"
#include "kx/threads/CThread.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <netinet/in.h>
#include <semaphore>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr int usualCount = 500;
constexpr int otherCount = 15;
constexpr double limit = 0.001; // at the median

/// A port where connections are neither taken nor refused: its queue has room for one, and holds one.
class CBusyPort {
public:
    CBusyPort()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof(address);
        if (bind(m_listener, plain, size) != 0 || listen(m_listener, 0) != 0
            || getsockname(m_listener, plain, &size) != 0 || connect(m_waiting, plain, size) != 0)
            throw std::system_error(errno, std::generic_category(), "a busy port");
        m_port = ntohs(address.sin_port);
    }
    CBusyPort(const CBusyPort&) = delete;
    CBusyPort& operator=(const CBusyPort&) = delete;
    ~CBusyPort()
    {
        close(m_waiting);
        close(m_listener);
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }

private:
    const int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int m_waiting = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_port = 0;
};

/// Tells of the first byte.
class CFirstByteSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        if (!m_isThere) {
            m_isThere = true;
            m_first.release();
        }
        return size;
    }

    void wait() { m_first.acquire(); }

private:
    bool m_isThere = false;
    std::binary_semaphore m_first{0};
};

/// A transfer of a pool, and what its answer goes to.
struct CStarted {
    kx::P<CFirstByteSink> sink;
    kx::P<norla::CTransfer> transfer;
};

CStarted start(norla::CTransferPool& pool, const std::string& url)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto sink = kx::newObj<CFirstByteSink>();
    request->setURL(kx::String::fromUTF8(url));
    request->setReceiveDataSink(sink.get());
    return {sink, pool.start(request.get())};
}

void expect(const norla::CTransfer& transfer, norla::TransferState state)
{
    if (transfer.getState() == state)
        return;
    const kx::P<kx::CError> error = transfer.getError();
    std::fprintf(stderr, "a transfer is in state %d instead of %d: %s\n", static_cast<int>(transfer.getState()),
        static_cast<int>(state), error ? error->what() : "no error");
    std::exit(1);
}

/// Seconds from cancel() to the end of each of many transfers, one after the other.
/// @param untilReady waits until the transfer is where it is to be cancelled
std::vector<double> cancelMany(norla::CTransferPool& pool, const std::string& url, norla::TransferState state,
    const std::function<void(CStarted&)>& untilReady, int cancelCount = usualCount)
{
    std::vector<double> times;
    for (int count = 0; count < cancelCount; ++count) {
        CStarted started = start(pool, url);
        untilReady(started);
        expect(*started.transfer, state);
        const double begin = bench::wallSeconds();
        started.transfer->cancel();
        started.transfer->wait();
        times.push_back(bench::wallSeconds() - begin);
        expect(*started.transfer, norla::TransferState::Cancelled);
    }
    return times;
}

/// @return the median
double print(const char* name, std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    const double middle = times[times.size() / 2];
    std::printf(
        "%-48s %10.0f %10.0f %10.0f\n", name, 1e6 * middle, 1e6 * times[times.size() * 99 / 100], 1e6 * times.back());
    std::fflush(stdout);
    return middle;
}

bool isQuick(double middle)
{
    if (middle > limit)
        std::printf("%52s\n", "over the limit");
    return middle <= limit;
}

void untilSettled(CStarted& started)
{
    do
        kx::CThread::sleep(2); // nothing tells that an answer does not come
    while (started.transfer->getState() == norla::TransferState::Queued);
}

void untilFirstByte(CStarted& started)
{
    started.sink->wait();
}

bool measureWaiting(const std::string& silent)
{
    const auto pool = kx::newObj<norla::CTransferPool>(norla::CTransferPool::Options{.atOnce = 1});
    start(*pool, silent); // holds the one place
    return isQuick(print("in the queue", cancelMany(*pool, silent, norla::TransferState::Queued, [](CStarted&) {})));
}

bool measureRunning(const char* name, const std::string& url, const std::function<void(CStarted&)>& untilReady)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    return isQuick(print(name, cancelMany(*pool, url, norla::TransferState::Running, untilReady)));
}

/// libcurl reads on from all of them before it gives back the word: no limit.
void measureBesideOthers(const std::string& down)
{
    constexpr int fewer = 20;
    const auto pool = kx::newObj<norla::CTransferPool>();
    for (int count = 0; count < otherCount; ++count)
        start(*pool, down).sink->wait();
    print("body comes, beside 15 others at full speed",
        cancelMany(*pool, down, norla::TransferState::Running, &untilFirstByte, fewer));
}

} // namespace

int main()
{
    try {
        const bench::CLoopbackServerProcess server(1LL << 40);
        bench::useFirstCore();
        const CBusyPort busy;
        std::printf("%-48s %10s %10s %10s\n", "microseconds from cancel() to the end", "median", "99 %", "most");
        bool good = measureWaiting(server.url("/silent"));
        good &= measureRunning("connecting", busy.url(), &untilSettled);
        good &= measureRunning("the server is silent", server.url("/silent"), &untilSettled);
        good &= measureRunning("the server is silent in the body", server.url("/part"), &untilFirstByte);
        good &= measureRunning("body comes", server.url("/down"), &untilFirstByte);
        measureBesideOthers(server.url("/down"));
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pool_cancel_bench: %s\n", error.what());
        return 1;
    }
}
