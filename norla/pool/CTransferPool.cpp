#include "norla/pool/CTransferPool.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/threads/processGeneration.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/CMultiHandle.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferSchedule.h"
#include "norla/pool/CTransferThread.h"
#include "norla/pool/CTransferWork.h"
#include "norla/pool/hostOf.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <sys/resource.h>
#include <vector>

namespace norla {

namespace {

constexpr int usualAtOnce = 256;
constexpr int usualIdleConnections = 256;
constexpr rlim_t keptDescriptors = 128; // for everything else in the process

/// A third of the descriptors: each transfer may have two connections (FTP), and as many as there are transfers may
/// stay open beside them.
int thirdOfDescriptors() noexcept
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::numeric_limits<int>::max();
    const rlim_t left = limit.rlim_cur > keptDescriptors ? limit.rlim_cur - keptDescriptors : 0;
    return static_cast<int>(std::clamp<rlim_t>(left / 3, 1, std::numeric_limits<int>::max()));
}

void requireNotNegative(int value, const char* name)
{
    if (value < 0)
        throw kx::CInvalidArgError(
            "the option '" + kx::String::fromLatin1(name) + "' is negative", "norla::CTransferPool");
}

void requireNotNegative(const kx::CTimeSpan& span, const char* name)
{
    if (!span.isInfinite() && span.getMicroseconds() < 0)
        throw kx::CInvalidArgError(
            "the option '" + kx::String::fromLatin1(name) + "' is negative", "norla::CTransferPool::start");
}

CTransferPool::Options checked(CTransferPool::Options options)
{
    requireNotNegative(options.atOnce, "atOnce");
    requireNotNegative(options.perHost, "perHost");
    requireNotNegative(options.idleConnections, "idleConnections");
    if (options.threads < 1)
        throw kx::CInvalidArgError("the option 'threads' is less than 1", "norla::CTransferPool");
    if (options.atOnce == 0) {
        options.atOnce = std::min(usualAtOnce, thirdOfDescriptors());
        if (options.perHost == 0)
            options.perHost = options.atOnce - options.atOnce / 4;
    }
    if (options.idleConnections == 0)
        options.idleConnections = std::clamp(thirdOfDescriptors() / options.threads, 1, usualIdleConnections);
    return options;
}

} // namespace

class CTransferPool::CImpl {
public:
    explicit CImpl(const Options& options)
        : m_process(kx::processGeneration())
        , m_executor(options.executor)
        , m_schedule(std::make_shared<CTransferSchedule>(options.atOnce, options.perHost))
    {
        for (int count = 0; count < options.threads; ++count)
            m_threads.push_back(std::make_unique<CTransferThread>(m_schedule, options.idleConnections));
    }
    CImpl(const CImpl&) = delete;
    CImpl& operator=(const CImpl&) = delete;
    ~CImpl() { stop(); }

    kx::P<CTransfer> start(CNetRequest& request, const CTransfer::Options& options)
    {
        if (kx::processGeneration() != m_process)
            throw kx::CError("A transfer pool works in the process alone that has made it, not in a child of that.");
        const std::string host = hostOf(CManagedRequest(request).getURL().toWide());
        const auto thread = std::hash<std::string>()(host) % m_threads.size();
        kx::P<CTransfer> transfer = CTransferWork::make(
            request, options, options.executor ? options.executor : m_executor, m_threads[thread]->getInbox());
        if (!request.claim())
            CMultiHandle::check(CURLM_ADDED_ALREADY); // as libcurl says, but before the running transfer is touched
        try {
            m_schedule->add(*transfer, host);
        } catch (...) {
            request.leaveManager();
            throw;
        }
        m_schedule->startNext();
        return transfer;
    }

    CTransferSchedule& getSchedule() noexcept { return *m_schedule; }

    // In a child process the locks may be those of threads that it does not have.
    void stop() noexcept
    {
        if (kx::processGeneration() != m_process)
            return;
        m_schedule->close();
        m_schedule->cancelAll();
        for (const auto& thread : m_threads)
            thread->askToStop();
        if (isOwnThread())
            return; // another thread may be about to wait for this one
        for (const auto& thread : m_threads)
            thread->join();
    }

    bool isOwnThread() const noexcept
    {
        return std::any_of(m_threads.begin(), m_threads.end(), [](const auto& thread) { return thread->isCurrent(); });
    }

private:
    const unsigned int m_process;
    const kx::P<IExecutor> m_executor;
    const std::shared_ptr<CTransferSchedule> m_schedule;
    std::vector<std::unique_ptr<CTransferThread>> m_threads;
};

CTransferPool::CTransferPool()
    : CTransferPool(Options())
{
}

CTransferPool::CTransferPool(const Options& options)
    : m_impl(std::make_unique<CImpl>(checked(options)))
{
}

CTransferPool::~CTransferPool()
{
    m_impl->stop();
}

kx::P<CTransfer> CTransferPool::start(CNetRequest* request, const CTransfer::Options& options)
{
    if (!request)
        throw kx::CInvalidArgError("request is null", "norla::CTransferPool::start");
    requireNotNegative(options.attemptDeadline, "attemptDeadline");
    requireNotNegative(options.deadline, "deadline");
    const std::shared_ptr<CImpl> impl = m_impl; // a coroutine may have the pool's last reference, and end before this
    return impl->start(*request, options);
}

void CTransferPool::addRequest(CNetRequest* request)
{
    start(request);
}

// A transfer that ends just now is waited for as well: its owner is told then, or never.
bool CTransferPool::removeRequest(CNetRequest* request)
{
    const kx::P<CTransfer> transfer = request ? m_impl->getSchedule().find(*request) : nullptr;
    if (!transfer)
        return false;
    CTransferWork& work = CTransferWork::of(*transfer);
    work.inbox->ask(work, CLoopInbox::ToWithdraw);
    if (m_impl->isOwnThread())
        return true;
    transfer->wait();
    return transfer->getState() == TransferState::Cancelled;
}

void CTransferPool::cancelAll()
{
    m_impl->getSchedule().cancelAll();
}

void CTransferPool::stop()
{
    m_impl->stop();
}

} // namespace norla
