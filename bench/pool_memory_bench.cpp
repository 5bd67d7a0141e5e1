// What transfers take of the heap, in the queue and while they run, beside the same transfers by hand.
#include "bench/CLoopbackServerProcess.h"
#include "bench/CPoolRun.h"
#include "bench/bareSockets.h"
#include "bench/cores.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <semaphore>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int waitingCount = 10'000;
constexpr int runningCount = 250; // below the usual limit of 1024 descriptors
constexpr double waitingLimit = 2'048;

double heapBytes()
{
    const auto info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Bytes that a transfer takes beyond its request while it waits.
bool measureWaiting(const std::string& silent, const std::string& url)
{
    const auto requests = bench::requestsTo(url, waitingCount);
    const auto pool = kx::newObj<norla::CTransferPool>(norla::CTransferPool::Options{.atOnce = 1});
    pool->start(bench::requestsTo(silent, 1).front().get()); // holds the one place
    const double before = heapBytes();
    for (const auto& request : requests)
        pool->start(request.get());
    const double bytes = (heapBytes() - before) / waitingCount;
    pool->stop();
    std::printf("a waiting transfer beside its request: %.0f bytes, limit %.0f%s\n", bytes, waitingLimit,
        bytes <= waitingLimit ? "" : "  over the limit");
    return bytes <= waitingLimit;
}

/// Tells of the first byte of each transfer.
class CFirstBytes : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_there.release(); // all of the part comes in one piece
        return size;
    }

    void wait(int count)
    {
        for (int waited = 0; waited < count; ++waited)
            m_there.acquire();
    }

private:
    std::counting_semaphore<runningCount> m_there{0};
};

/// Bytes of a transfer with its request, of which the first KiB has come.
double runningInPool(const std::string& url)
{
    const auto pool = kx::newObj<norla::CTransferPool>(norla::CTransferPool::Options{.atOnce = runningCount});
    const auto sink = kx::newObj<CFirstBytes>();
    const double before = heapBytes();
    const auto requests = bench::requestsTo(url, runningCount);
    for (const auto& request : requests) {
        request->setReceiveDataSink(sink.get());
        pool->start(request.get());
    }
    sink->wait(runningCount);
    const double bytes = (heapBytes() - before) / runningCount;
    pool->stop();
    return bytes;
}

/// The same by hand.
double runningByHand(const std::string& url)
{
    const double before = heapBytes();
    bench::CBareSocketLoop<bench::CBareTransfer> loop(std::vector<std::string>(runningCount, url));
    loop.begin(runningCount);
    const auto hasBody = [](const auto& transfer) { return transfer->response().bodySize() > 0; };
    while (!std::all_of(loop.transfers().begin(), loop.transfers().end(), hasBody))
        loop.step();
    return (heapBytes() - before) / runningCount;
}

} // namespace

int main()
{
    try {
        const bench::CLoopbackServerProcess server(0);
        bench::useFirstCore();
        const std::string part = server.url("/part");
        runningByHand(part); // what is made once
        runningInPool(part);
        const double bare = runningByHand(part);
        const double pool = runningInPool(part);
        std::printf("a running transfer with its request: %.0f bytes, by hand %.0f\n", pool, bare);
        return measureWaiting(server.url("/silent"), server.url("/small")) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pool_memory_bench: %s\n", error.what());
        return 1;
    }
}
