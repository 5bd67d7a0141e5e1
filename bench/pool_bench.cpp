// A pool beside what else runs many transfers at once: a loop over libcurl's event interface by hand, its poll
// interface, and the library's thread. The server is a process of its own, so that all of this one's time counts.
#include "bench/CLoopbackServerProcess.h"
#include "bench/CPoolRun.h"
#include "bench/bareMulti.h"
#include "bench/bareSockets.h"
#include "bench/compare.h"
#include "bench/cores.h"
#include "bench/plainSockets.h"
#include "bench/turns.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int transfers = 8'000;
constexpr int rounds = 7;
constexpr int latencyCount = 200;

/// Many transfers on the library's thread, as many of them at once as there are requests.
class CThreadRun : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    explicit CThreadRun(const std::vector<std::string>& urls)
        : m_requests(bench::requestsTo(urls))
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
    const bench::Requests m_requests;
    const kx::P<norla::CAsyncNetRequestThread> m_thread = kx::newObj<norla::CAsyncNetRequestThread>(nullptr);
    std::promise<void> m_done;
    std::atomic<int> m_left{0};
    std::atomic<int> m_running{0};
};

/// So many URLs, of so many hosts in turns. Libcurl itself knows where every name is that ends in .localhost.
std::vector<std::string> urlsOf(const std::string& url, int count, int hosts)
{
    const std::string address = "127.0.0.1";
    std::vector<std::string> urls(static_cast<size_t>(count), url);
    for (size_t i = 0; hosts > 1 && i < urls.size(); ++i)
        urls[i].replace(
            url.find(address), address.size(), "host-" + std::to_string(i % static_cast<size_t>(hosts)) + ".localhost");
    return urls;
}

/// One row for each of the contenders.
bool compareAtOnce(const std::string& url, int count, int hosts)
{
    const int runs = std::max(transfers, 4 * count);
    std::vector<bench::CContender> contenders;
    const auto add = [&](const char* name, const auto& contender) {
        contenders.push_back({name, [contender, runs] { return bench::processCost([&] { contender->run(runs); }); }});
    };
    const std::vector<std::string> urls = urlsOf(url, count, hosts);
    add("bare sockets", std::make_shared<bench::CBareSocketLoop<bench::CBareTransfer>>(urls));
    add("pool", std::make_shared<bench::CPoolRun>(bench::requestsTo(urls)));
    if (count <= 512) {
        add("bare poll", std::make_shared<bench::CBareMulti<bench::CBareTransfer>>(urls));
        add("thread", kx::newObj<CThreadRun>(urls));
    }
    bench::runInTurns(contenders, rounds);
    constexpr double limit = 1.05;
    const bool good = bench::cpuRatio(contenders[1], contenders[0]) <= limit;
    for (const bench::CContender& contender : contenders)
        bench::printTurnsRow(std::to_string(count) + (hosts > 1 ? ", " + std::to_string(hosts) + " hosts" : " at once"),
            contender, contenders[0], runs, &contender == &contenders[1] && !good ? "  over the limit" : "");
    return good;
}

/// By how much the system's own work grows with the number of connections, whoever does the rest.
void showPlainSockets(const std::string& url)
{
    const auto port = static_cast<unsigned short>(std::stoi(url.substr(url.rfind(':') + 1)));
    for (const int count : {64, 512, 4'096}) {
        const int runs = std::max(transfers, 4 * count);
        const auto loop = std::make_shared<bench::CPlainSocketLoop>(port, "/small", 1024, count);
        std::vector<bench::CContender> contenders{
            {"the system alone", [loop, runs] { return bench::processCost([&] { loop->run(runs); }); }}};
        bench::runInTurns(contenders, rounds);
        bench::printTurnsRow(std::to_string(count) + " at once", contenders[0], contenders[0], runs);
    }
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

/// A request whose first byte is waited for again and again.
class CFirstByteRequest {
public:
    CFirstByteRequest(const std::string& url, bool isConnecting)
    {
        m_request->setURL(kx::String::fromUTF8(url));
        m_request->setReceiveDataSink(m_sink.get());
        m_request->setOptionInt(CURLOPT_FRESH_CONNECT, isConnecting ? 1 : 0);
    }

    /// Seconds to the first byte.
    double latency(const std::function<void(norla::CNetRequest&)>& run)
    {
        m_sink->m_time = 0;
        kx::CThread::sleep(2); // whoever waits sleeps by now
        const double start = bench::wallSeconds();
        run(*m_request);
        return m_sink->m_time - start;
    }

private:
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
    const kx::P<CFirstByteSink> m_sink = kx::newObj<CFirstByteSink>();
};

/// @param isConnecting with a new connection for each transfer, and a new request, which keeps none; or else with one
/// that stays open on either side
bool compareLatencies(const std::string& url, bool isConnecting)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    const auto perform = [](norla::CNetRequest& request) { request.perform(); };
    const auto runInPool = [&pool](norla::CNetRequest& request) { pool->start(&request)->wait(); };
    std::optional<CFirstByteRequest> alone;
    std::optional<CFirstByteRequest> pooled;
    std::vector<double> performed;
    std::vector<double> started;
    for (int count = 0; count < latencyCount; ++count) {
        if (count == 0 || isConnecting) {
            alone.emplace(url, isConnecting);
            pooled.emplace(url, isConnecting);
        }
        performed.push_back(alone->latency(perform));
        started.push_back(pooled->latency(runInPool));
    }
    const double limit = 1.3 * bench::median(performed) + 50e-6;
    const bool good = bench::median(started) <= limit;
    std::printf(
        "microseconds to the first byte, %s connections, median: perform() %.0f, idle pool %.0f, limit %.0f%s\n",
        isConnecting ? "new" : "kept", 1e6 * bench::median(performed), 1e6 * bench::median(started), 1e6 * limit,
        good ? "" : "  over the limit");
    return good;
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
        const bench::CLoopbackServerProcess server(0);
        const std::string url = server.url("/small");
        bench::useFirstCore();
        bench::printTurnsHeading("1 KiB");
        showPlainSockets(url);
        bool good = true;
        for (const int count : {1, 8, 64, 512, 4'096})
            good &= compareAtOnce(url, count, 1);
        for (const int count : {64, 512}) // libcurl looks for a free connection among those of the host
            good &= compareAtOnce(url, count, 64);
        std::printf("\n");
        good &= compareLatencies(url, true);
        good &= compareLatencies(url, false);
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pool_bench: %s\n", error.what());
        return 1;
    }
}
