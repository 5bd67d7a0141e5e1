// Many transfers at once beside a loop over bare libcurl's multi interface.
#include "bench/CLoopbackServer.h"
#include "bench/bareMulti.h"
#include "bench/compare.h"
#include "bench/cores.h"
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

using bench::CBareMulti;
using bench::CBareTransfer;

constexpr int getCount = 2'000;
constexpr int rounds = 51;
constexpr int atOnce = 64;
constexpr int latencyCount = 100;

/// A request without the manager.
class CRequestTransfer {
public:
    explicit CRequestTransfer(const std::string& url)
    {
        m_request->setURL(kx::String::fromUTF8(url));
        m_request->setOptionPtr(CURLOPT_PRIVATE, this);
    }
    CURL* handle() const { return m_request->getEasyHandle(); }
    void start() { m_request->setAsyncInfo(false, CURLE_OK); }
    void end(CURLcode result)
    {
        m_request->setAsyncInfo(true, result);
        m_request->checkAsyncResult();
    }

private:
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

class CManagedRequests {
public:
    CManagedRequests(const std::string& url, int count)
    {
        for (int i = 0; i < count; ++i) {
            m_requests.push_back(kx::newObj<norla::CNetRequest>());
            m_requests.back()->setURL(kx::String::fromUTF8(url));
        }
    }

    void run(int transfers)
    {
        int left = transfers;
        int running = 0;
        for (const auto& request : m_requests)
            start(*request, left, running);
        norla::CAsyncNetRequestManager::RequestArray finished;
        while (running > 0) {
            m_manager->handleEvents(&finished);
            running -= static_cast<int>(finished.size());
            for (const auto& request : finished) {
                request->checkAsyncResult();
                start(*request, left, running);
            }
            finished.clear();
            if (running > 0)
                m_manager->waitForEvents(100);
        }
    }

private:
    void start(norla::CNetRequest& request, int& left, int& running)
    {
        if (left == 0)
            return;
        --left;
        ++running;
        m_manager->addRequest(&request);
    }

    const kx::P<norla::CAsyncNetRequestManager> m_manager = kx::newObj<norla::CAsyncNetRequestManager>();
    std::vector<kx::P<norla::CNetRequest>> m_requests;
};

template <typename TTransfer>
bool compareManyGets(const std::string& url, const std::string& beside)
{
    CBareMulti<TTransfer> bare(url, atOnce);
    CManagedRequests managed(url, atOnce);
    const auto runBare = [&bare] { bare.run(getCount); };
    const auto runManaged = [&managed] { managed.run(getCount); };
    // A rate of 0.95 is a time of 1 / 0.95.
    bool good = bench::compare(
        {"2000 GETs, 64 at once, wall, " + beside, 1 / 0.95, rounds, runBare, runManaged, &bench::wallSeconds});
    good &= bench::compare({"2000 GETs, 64 at once, CPU, " + beside, 1.10, rounds, runBare, runManaged});
    return good;
}

void printGrowth(const std::string& url)
{
    std::printf("\nCPU time for each of 5000 transfers, by how many run at once\n%-8s %10s %10s %7s\n", "at once",
        "bare us", "norla us", "ratio");
    constexpr int transfers = 5'000;
    for (const int count : {1, 2, 4, 8, 16, 32, 64, 128, 256, 512}) {
        CBareMulti<CBareTransfer> bare(url, count);
        CManagedRequests managed(url, count);
        std::vector<double> bareTimes;
        std::vector<double> managedTimes;
        for (int round = 0; round < 3; ++round) {
            const double start = bench::threadSeconds();
            bare.run(transfers);
            const double middle = bench::threadSeconds();
            managed.run(transfers);
            bareTimes.push_back((middle - start) / transfers * 1e6);
            managedTimes.push_back((bench::threadSeconds() - middle) / transfers * 1e6);
        }
        const double bareTime = bench::median(bareTimes);
        const double managedTime = bench::median(managedTimes);
        std::printf("%-8d %10.1f %10.1f %7.3f\n", count, bareTime, managedTime, managedTime / bareTime);
        std::fflush(stdout);
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

/// Starts the same transfer over and over, so that its thread is never idle.
class CAddingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    explicit CAddingListener(norla::CAsyncNetRequestThread& thread)
        : m_thread(thread)
    {
    }
    void onNetRequestDone(norla::CNetRequest* request, const kx::CError*) override { m_thread.addRequest(request); }

private:
    norla::CAsyncNetRequestThread& m_thread;
};

/// Seconds from addRequest() to the first byte of the body, at any moment of the thread's pass.
double latencyOn(norla::CAsyncNetRequestThread& thread, const std::string& url, std::minstd_rand& random)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto sink = kx::newObj<CFirstByteSink>();
    request->setURL(kx::String::fromUTF8(url));
    request->setReceiveDataSink(sink.get());
    kx::CThread::sleep(static_cast<int>(random() % 100));
    const double start = bench::wallSeconds();
    thread.addRequest(request.get());
    request->waitAsyncDone(-1);
    request->checkAsyncResult();
    return sink->m_time - start;
}

double latencyOfPerform(const std::string& url)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto sink = kx::newObj<CFirstByteSink>();
    request->setURL(kx::String::fromUTF8(url));
    request->setReceiveDataSink(sink.get());
    const double start = bench::wallSeconds();
    request->perform();
    return sink->m_time - start;
}

void printDistribution(const char* name, std::vector<double> seconds)
{
    std::sort(seconds.begin(), seconds.end());
    const auto at = [&seconds](double part) {
        return 1000 * seconds[static_cast<size_t>(part * (static_cast<double>(seconds.size()) - 1))];
    };
    std::printf("%-28s %8.2f %8.2f %8.2f %8.2f %8.2f\n", name, at(0), at(0.5), at(0.9), at(0.99), at(1));
    std::fflush(stdout);
}

template <typename TMeasure>
std::vector<double> measured(TMeasure measure)
{
    std::vector<double> values;
    for (int i = 0; i < latencyCount; ++i)
        values.push_back(measure());
    return values;
}

void printLatencies(const bench::CLoopbackServer& server)
{
    const std::string url = server.url("/small");
    std::minstd_rand random(1);
    std::printf("\n%-28s %8s %8s %8s %8s %8s\n", "ms to the first byte", "least", "median", "90 %", "99 %", "most");
    printDistribution("perform()", measured([&url] { return latencyOfPerform(url); }));
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>(nullptr);
    thread->start();
    printDistribution("addRequest(), thread idle", measured([&] { return latencyOn(*thread, url, random); }));
    const auto again = kx::newObj<CAddingListener>(*thread);
    const auto busy = kx::newObj<norla::CNetRequest>();
    busy->setURL(kx::String::fromUTF8(url));
    busy->setDoneListener(again.get());
    thread->addRequest(busy.get());
    printDistribution("addRequest(), thread at work", measured([&] { return latencyOn(*thread, url, random); }));
    thread->stop(true);
}

} // namespace

int main()
{
    try {
        kx::newObj<norla::CNetRequest>(); // initialises libcurl for both sides
        bench::useFirstCore();
        bench::printHeading();
        const bench::CLoopbackServer server(1 << 30);
        bool good = compareManyGets<CBareTransfer>(server.url("/small"), "handles");
        good &= compareManyGets<CRequestTransfer>(server.url("/small"), "requests");
        printLatencies(server);
        printGrowth(server.url("/small"));
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "async_bench: %s\n", error.what());
        return 1;
    }
}
