// A pool beside what else runs many transfers at once: a loop over libcurl's event interface by hand, its poll
// interface, and the library's thread. The server is a process of its own, so that all of this one's time counts.
#include "bench/CLoopbackServer.h"
#include "bench/bareMulti.h"
#include "bench/compare.h"
#include "bench/cores.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <future>
#include <malloc.h>
#include <memory>
#include <string>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using bench::check;

constexpr int transfers = 8'000;
constexpr int rounds = 7;
constexpr int latencyCount = 200;
constexpr int mostAtOnce = 4'096;

/// All threads together.
double processSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// The server, in a child process that ends with this one.
class CServerProcess {
public:
    CServerProcess()
    {
        std::array<int, 2> pipe{};
        if (::pipe(pipe.data()) != 0)
            std::exit(1);
        m_process = fork();
        if (m_process == 0)
            serve(pipe[1]);
        std::array<char, 64> url{};
        if (read(pipe[0], url.data(), url.size() - 1) <= 0)
            std::exit(1);
        m_url = url.data();
    }
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;
    ~CServerProcess()
    {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }

    const std::string& url() const { return m_url; }

private:
    [[noreturn]] static void serve(int pipe)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const bench::CLoopbackServer server(1 << 20);
        const std::string url = server.url("/small");
        if (write(pipe, url.data(), url.size()) < 0)
            std::exit(1);
        for (;;)
            pause();
    }

    pid_t m_process;
    std::string m_url;
};

/// libcurl's event interface by hand: epoll, and libcurl's one timer.
class CBareSocketLoop : public bench::CBareMulti<bench::CBareTransfer> {
public:
    CBareSocketLoop(const std::string& url, int count)
        : CBareMulti(url, count)
    {
        check(curl_multi_setopt(m_multi, CURLMOPT_SOCKETFUNCTION, &onSocket));
        check(curl_multi_setopt(m_multi, CURLMOPT_SOCKETDATA, this));
        check(curl_multi_setopt(m_multi, CURLMOPT_TIMERFUNCTION, &onTimer));
        check(curl_multi_setopt(m_multi, CURLMOPT_TIMERDATA, this));
    }
    ~CBareSocketLoop() override { close(m_epoll); }

private:
    static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known)
    {
        auto& loop = *static_cast<CBareSocketLoop*>(self);
        epoll_event event{};
        event.data.fd = socket;
        event.events = (what & CURL_POLL_IN ? EPOLLIN : 0U) | (what & CURL_POLL_OUT ? EPOLLOUT : 0U);
        if (what == CURL_POLL_REMOVE)
            epoll_ctl(loop.m_epoll, EPOLL_CTL_DEL, socket, &event);
        else
            epoll_ctl(loop.m_epoll, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
        if (what != CURL_POLL_REMOVE && !known)
            curl_multi_assign(loop.m_multi, socket, self);
        return 0;
    }

    static int onTimer(CURLM*, long milliseconds, void* self)
    {
        static_cast<CBareSocketLoop*>(self)->m_due
            = milliseconds < 0 ? -1 : bench::wallSeconds() + static_cast<double>(milliseconds) / 1000;
        return 0;
    }

    int perform() override
    {
        for (int index = 0; index < m_count; ++index) {
            const epoll_event& event = m_found[static_cast<size_t>(index)];
            const int bits
                = (event.events & EPOLLIN ? CURL_CSELECT_IN : 0) | (event.events & EPOLLOUT ? CURL_CSELECT_OUT : 0);
            check(curl_multi_socket_action(m_multi, event.data.fd, bits, &m_running));
        }
        m_count = 0;
        if (m_due >= 0 && bench::wallSeconds() >= m_due) {
            m_due = -1;
            check(curl_multi_socket_action(m_multi, CURL_SOCKET_TIMEOUT, 0, &m_running));
        }
        return m_running;
    }

    void wait() override
    {
        const double left = m_due - bench::wallSeconds();
        const int milliseconds = m_due < 0 ? -1 : std::max(0, static_cast<int>(left * 1000 + 1));
        m_count = epoll_wait(
            m_epoll, m_found.data(), static_cast<int>(m_found.size()), m_due >= 0 && left <= 0 ? 0 : milliseconds);
    }

    const int m_epoll = epoll_create1(0);
    std::array<epoll_event, 256> m_found{};
    int m_count = 0;
    int m_running = 0;
    double m_due = -1;
};

std::vector<kx::P<norla::CNetRequest>> requestsTo(const std::string& url, int count)
{
    std::vector<kx::P<norla::CNetRequest>> requests;
    for (int made = 0; made < count; ++made) {
        requests.push_back(kx::newObj<norla::CNetRequest>());
        requests.back()->setURL(kx::String::fromUTF8(url));
    }
    return requests;
}

/// So many transfers, of which each end starts another.
class CPoolRun {
public:
    CPoolRun(const std::string& url, int count, int threads = 1)
        : m_requests(requestsTo(url, count))
        , m_pool(kx::newObj<norla::CTransferPool>(
              norla::CTransferPool::Options{.threads = threads, .atOnce = count, .idleConnections = count}))
    {
        m_options.onDone = [this](norla::CTransfer& transfer) { onDone(transfer); };
    }

    void run(int count)
    {
        m_left = count - static_cast<int>(m_requests.size());
        m_running = static_cast<int>(m_requests.size());
        m_done = std::promise<void>();
        for (const auto& request : m_requests)
            m_pool->start(request.get(), m_options);
        m_done.get_future().wait();
    }

private:
    void onDone(norla::CTransfer& transfer)
    {
        transfer.check();
        if (m_left-- > 0)
            m_pool->start(&transfer.getRequest(), m_options);
        else if (--m_running == 0)
            m_done.set_value();
    }

    const std::vector<kx::P<norla::CNetRequest>> m_requests;
    norla::CTransfer::Options m_options;
    std::promise<void> m_done;
    std::atomic<int> m_left{0};
    std::atomic<int> m_running{0};
    const kx::P<norla::CTransferPool> m_pool; // goes first
};

/// The same on the library's thread.
class CThreadRun : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    CThreadRun(const std::string& url, int count)
        : m_requests(requestsTo(url, count))
    {
        m_thread->start();
        for (const auto& request : m_requests)
            request->setDoneListener(this);
    }
    ~CThreadRun() override
    {
        m_thread->stop(true);
        for (const auto& request : m_requests)
            request->setDoneListener(nullptr);
    }

    void run(int count)
    {
        m_left = count - static_cast<int>(m_requests.size());
        m_running = static_cast<int>(m_requests.size());
        m_done = std::promise<void>();
        for (const auto& request : m_requests)
            m_thread->addRequest(request.get());
        m_done.get_future().wait();
    }

    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override
    {
        if (error)
            std::exit(1);
        if (m_left-- > 0)
            m_thread->addRequest(request);
        else if (--m_running == 0)
            m_done.set_value();
    }

private:
    const std::vector<kx::P<norla::CNetRequest>> m_requests;
    const kx::P<norla::CAsyncNetRequestThread> m_thread = kx::newObj<norla::CAsyncNetRequestThread>(nullptr);
    std::promise<void> m_done;
    std::atomic<int> m_left{0};
    std::atomic<int> m_running{0};
};

struct CContender {
    const char* name;
    std::function<void()> run;
    std::vector<double> cpu = {}; // microseconds a transfer
    std::vector<double> wall = {};
};

/// One row for each of the contenders, which run in turns.
bool compareAtOnce(const std::string& url, int count)
{
    const auto socketLoop = std::make_unique<CBareSocketLoop>(url, count);
    const auto pollLoop = std::make_unique<bench::CBareMulti<bench::CBareTransfer>>(url, count);
    const auto pool = std::make_unique<CPoolRun>(url, count);
    const auto thread = kx::newObj<CThreadRun>(url, count);
    const int runs = std::max(transfers, 4 * count);
    std::vector<CContender> contenders;
    contenders.push_back({"bare sockets", [&] { socketLoop->run(runs); }});
    contenders.push_back({"pool", [&] { pool->run(runs); }});
    if (count <= 512) {
        contenders.push_back({"bare poll", [&] { pollLoop->run(runs); }});
        contenders.push_back({"thread", [&] { thread->run(runs); }});
    }
    for (int round = -1; round < rounds; ++round) {
        for (size_t turn = 0; turn < contenders.size(); ++turn) {
            CContender& contender = contenders[(turn + static_cast<size_t>(round + 1)) % contenders.size()];
            const double cpu = processSeconds();
            const double wall = bench::wallSeconds();
            contender.run();
            if (round < 0)
                continue; // warm: connections, caches
            contender.cpu.push_back((processSeconds() - cpu) / runs * 1e6);
            contender.wall.push_back((bench::wallSeconds() - wall) / runs * 1e6);
        }
    }
    constexpr double limit = 1.05;
    double poolRatio = 0;
    for (const CContender& contender : contenders) {
        std::vector<double> ratios;
        for (size_t round = 0; round < contender.cpu.size(); ++round)
            ratios.push_back(contender.cpu[round] / contenders[0].cpu[round]);
        const double ratio = bench::median(ratios);
        if (&contender == &contenders[1])
            poolRatio = ratio;
        std::printf("%-8d %-14s %10.1f %7.3f %10.1f%s\n", count, contender.name, bench::median(contender.cpu), ratio,
            bench::median(contender.wall), &contender == &contenders[1] && ratio > limit ? "  over the limit" : "");
        std::fflush(stdout);
    }
    return poolRatio <= limit;
}

/// Keeps the time of the first byte.
class CFirstByteSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        if (m_time == 0)
            m_time = bench::wallSeconds();
        return size;
    }
    double m_time = 0;
};

/// Seconds to the first byte of a new request.
double latency(const std::string& url, const std::function<void(norla::CNetRequest&)>& run)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto sink = kx::newObj<CFirstByteSink>();
    request->setURL(kx::String::fromUTF8(url));
    request->setReceiveDataSink(sink.get());
    kx::CThread::sleep(2); // whoever waits sleeps by now
    const double start = bench::wallSeconds();
    run(*request);
    return sink->m_time - start;
}

bool compareLatencies(const std::string& url)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    std::vector<double> performed;
    std::vector<double> pooled;
    std::vector<double> cancelled;
    for (int count = 0; count < latencyCount; ++count) {
        performed.push_back(latency(url, [](norla::CNetRequest& request) { request.perform(); }));
        pooled.push_back(latency(url, [&](norla::CNetRequest& request) { pool->start(&request)->wait(); }));
    }
    const double limit = 1.3 * bench::median(performed) + 50e-6;
    const bool good = bench::median(pooled) <= limit;
    std::printf("\nmicroseconds to the first byte, median: perform() %.0f, idle pool %.0f, limit %.0f%s\n",
        1e6 * bench::median(performed), 1e6 * bench::median(pooled), 1e6 * limit, good ? "" : "  over the limit");
    return good;
}

/// Bytes that a transfer takes beyond its request while it waits in the queue.
bool compareMemory(const std::string& url)
{
    constexpr int count = 10'000;
    const auto requests = requestsTo(url, count);
    const auto pool = kx::newObj<norla::CTransferPool>(norla::CTransferPool::Options{.atOnce = 1});
    const auto silent = kx::newObj<norla::CNetRequest>(); // holds the one place
    silent->setURL(kx::String::fromUTF8(url.substr(0, url.rfind('/')) + "/down"));
    std::promise<void> gate;
    class CGate : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
    public:
        explicit CGate(std::future<void> gate)
            : m_gate(std::move(gate))
        {
        }
        int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
        {
            if (m_gate.valid())
                m_gate.get();
            return size;
        }

    private:
        std::future<void> m_gate;
    };
    silent->setReceiveDataSink(kx::newObj<CGate>(gate.get_future()).get());
    pool->start(silent.get());
    const size_t before = mallinfo2().uordblks;
    for (const auto& request : requests)
        pool->start(request.get());
    const double bytes = static_cast<double>(mallinfo2().uordblks - before) / count;
    gate.set_value();
    pool->stop();
    constexpr double limit = 2'048;
    std::printf("bytes of a waiting transfer beside its request: %.0f, limit %.0f%s\n", bytes, limit,
        bytes <= limit ? "" : "  over the limit");
    return bytes <= limit;
}

void allowDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main()
{
    try {
        allowDescriptors();
        const CServerProcess server;
        bench::useFirstCore();
        bool good = true;
        std::printf("%-8s %-14s %10s %7s %10s\n", "at once", "by", "CPU us", "ratio", "wall us");
        for (const int count : {1, 8, 64, 512, mostAtOnce})
            good &= compareAtOnce(server.url(), count);
        good &= compareLatencies(server.url());
        good &= compareMemory(server.url());
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pool_bench: %s\n", error.what());
        return 1;
    }
}
