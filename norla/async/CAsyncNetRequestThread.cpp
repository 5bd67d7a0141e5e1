#include "norla/async/CAsyncNetRequestThread.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/log/log.h"
#include "kx/threads/CMutexLock.h"
#include "kx/threads/CSignal.h"
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CManagedRequest.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace norla {

namespace {

constexpr int passMs = 100;          // what a new request may have to wait for
constexpr int livenessCheckMs = 250; // how often a waiting caller looks whether the thread is still there

} // namespace

/// One removal, shared by the caller who waits for it and the thread that carries it out.
class CAsyncNetRequestThread::CRemoveRequest : public kx::CBase {
public:
    CRemoveRequest(CNetRequest* request, unsigned long long order)
        : m_request(request)
        , m_order(order)
    {
    }

    bool concerns(const CNetRequest& request) const { return m_requested == nullptr || m_requested == &request; }

    /// Whether an addition was surely made after it: by somebody who knew that it was asked for, because nobody waits
    /// for it.
    bool isBefore(unsigned long long additionOrder) const { return !m_isWaitedFor && m_order < additionOrder; }

    kx::P<CNetRequest> m_request; // null: all of them, or carried out
    const CNetRequest* const m_requested = m_request.get();
    const unsigned long long m_order;
    kx::CSignal m_done;
    std::atomic<bool> m_isWaitedFor{true};
    bool m_removed = false; // written before the signal is set, read after
};

/// While one of these lives, its request is known to wait for a start that will come.
class CAsyncNetRequestThread::CPlaceInQueue : public kx::CBase {
public:
    explicit CPlaceInQueue(CNetRequest* request)
        : m_request(request)
    {
        CManagedRequest(*m_request).enterQueue();
    }
    CPlaceInQueue(const CPlaceInQueue&) = delete;
    CPlaceInQueue& operator=(const CPlaceInQueue&) = delete;
    ~CPlaceInQueue() override { CManagedRequest(*m_request).leaveQueue(); }

private:
    const kx::P<CNetRequest> m_request;
};

/// The thread runs: what was added before has a place in the queue from now on, and none behind the thread's end.
class CAsyncNetRequestThread::CTakingUp {
public:
    explicit CTakingUp(CAsyncNetRequestThread& thread)
        : m_thread(thread)
    {
        const kx::CMutexLock lock(m_thread.m_addMutex);
        m_thread.m_takesUp = true;
        for (CAddition& addition : m_thread.m_pendingAdditions)
            addition.place = kx::newObj<CPlaceInQueue>(addition.request.get());
    }
    CTakingUp(const CTakingUp&) = delete;
    CTakingUp& operator=(const CTakingUp&) = delete;
    ~CTakingUp()
    {
        const kx::CMutexLock lock(m_thread.m_addMutex);
        m_thread.m_takesUp = false;
        for (CAddition& addition : m_thread.m_pendingAdditions)
            addition.place = nullptr;
    }

private:
    CAsyncNetRequestThread& m_thread;
};

CAsyncNetRequestThread::CAsyncNetRequestThread(IProgressHandler* progressHandler)
    : m_progressHandler(progressHandler)
{
    setName("norla.asyncNetRequest");
}

CAsyncNetRequestThread::~CAsyncNetRequestThread()
{
    try {
        stop(true);
    } catch (const std::exception& error) {
        kx::onExceptionInDestructorIgnored("norla::CAsyncNetRequestThread", error, true);
    }
}

void CAsyncNetRequestThread::addRequest(CNetRequest* request)
{
    if (!request)
        throw kx::CInvalidArgError("request is null", "CAsyncNetRequestThread::addRequest");
    if (isPending(*request))
        throw kx::CInvalidArgError("request was added already", "CAsyncNetRequestThread::addRequest");
    const kx::CMutexLock lock(m_addMutex);
    m_pendingAdditions.push_back({request, ++m_order, m_takesUp ? kx::newObj<CPlaceInQueue>(request) : nullptr});
}

// Waiting for its start, with no removal asked for meanwhile.
bool CAsyncNetRequestThread::isPending(const CNetRequest& request)
{
    const RemovalArray removals = askedRemovals();
    const kx::CMutexLock lock(m_addMutex);
    return std::any_of(m_pendingAdditions.begin(), m_pendingAdditions.end(), [&](const CAddition& addition) {
        return addition.request == &request
            && std::none_of(removals.begin(), removals.end(), [&](const kx::P<CRemoveRequest>& removal) {
                   return removal->concerns(request) && removal->m_order > addition.order;
               });
    });
}

bool CAsyncNetRequestThread::removeRequest(CNetRequest* request)
{
    kx::P<CRemoveRequest> removal;
    {
        const kx::CMutexLock lock(m_askedMutex);
        removal = kx::newObj<CRemoveRequest>(request, ++m_order);
        m_askedRemovals.push_back(removal);
    }
    {
        const kx::CMutexLock lock(m_removeMutex);
        m_pendingRemovals.push_back(removal);
    }
    while (getCurrentID() != getID() && isAlive()) { // it would wait for itself
        if (removal->m_done.wait(livenessCheckMs))
            return removal->m_removed;
    }
    removal->m_isWaitedFor = false;
    return false;
}

bool CAsyncNetRequestThread::removeAllRequests()
{
    return removeRequest(nullptr);
}

// The manager lives and dies here: its multi handle knows no other thread.
void CAsyncNetRequestThread::runImpl()
{
    const CTakingUp takingUp(*this);
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    while (checkContinue()) {
        startPendingRequests(*manager);
        processRemoveRequests(*manager);
        manager->waitForEvents(passMs);
        handleManagerEvents(*manager);
        if (m_progressHandler)
            m_progressHandler->onProgress();
    }
    onThreadExit();
}

void CAsyncNetRequestThread::onThreadExit()
{
}

void CAsyncNetRequestThread::handleManagerEvents(CAsyncNetRequestManager& manager)
{
    manager.handleEvents(nullptr);
}

// Newest first, but not before a removal that was asked for earlier: that one means a transfer before this one. An
// entry is found again by its order, because the start of a transfer calls its source, which may add others meanwhile.
void CAsyncNetRequestThread::startPendingRequests(CAsyncNetRequestManager& manager)
{
    const unsigned long long latest = m_order; // what comes later may come behind a removal that is not seen here
    const RemovalArray removals = askedRemovals();
    const auto mayStart = [&removals, latest](const CAddition& addition) {
        return addition.order <= latest
            && std::none_of(removals.begin(), removals.end(), [&addition](const kx::P<CRemoveRequest>& removal) {
                   return removal->concerns(*addition.request) && removal->isBefore(addition.order);
               });
    };
    const kx::CMutexLock lock(m_addMutex);
    for (;;) {
        const auto next = std::find_if(m_pendingAdditions.rbegin(), m_pendingAdditions.rend(), mayStart);
        if (next == m_pendingAdditions.rend())
            return;
        const CAddition addition = *next;
        try {
            startUnlessRunning(manager, *addition.request);
        } catch (const std::exception& error) {
            // What libcurl refuses as a whole is not the request's fault: it is tried again when the thread is.
            const auto* const known = dynamic_cast<const kx::CError*>(&error);
            if (!known || known->getDomain() != "curlm")
                forgetAddition(addition.order);
            throw;
        }
        forgetAddition(addition.order);
    }
}

void CAsyncNetRequestThread::forgetAddition(unsigned long long order)
{
    const auto found = std::find_if(m_pendingAdditions.begin(), m_pendingAdditions.end(),
        [order](const CAddition& addition) { return addition.order == order; });
    m_pendingAdditions.erase(found);
}

// One that runs already goes on, and the others with it.
void CAsyncNetRequestThread::startUnlessRunning(CAsyncNetRequestManager& manager, CNetRequest& request)
{
    try {
        manager.addRequest(&request);
    } catch (const CCURLError& error) {
        if (error.getDomain() != "curlm" || error.getCode() != CURLM_ADDED_ALREADY)
            throw;
        kx::logError(kx::CInvalidArgError("request is running already", "CAsyncNetRequestThread::addRequest"),
            "A request was added twice to the background transfers (ignored).", "");
    }
}

// What was added before its removal may have come after the additions of this pass: it is taken up first, and a removal
// that comes still later waits for the next pass. So nothing that was added and then removed is left running, and
// nothing that was removed and then added is stopped.
void CAsyncNetRequestThread::processRemoveRequests(CAsyncNetRequestManager& manager)
{
    const RemovalArray due = pendingRemovals();
    if (due.empty())
        return;
    startPendingRequests(manager);
    {
        const kx::CMutexLock lock(m_removeMutex);
        for (size_t left = due.size(); left > 0; --left) {
            const auto last = m_pendingRemovals.begin() + static_cast<std::ptrdiff_t>(left - 1);
            const kx::P<CRemoveRequest> removal = std::move(*last);
            m_pendingRemovals.erase(last);
            if (removal->m_request) {
                removal->m_removed = manager.removeRequest(removal->m_request.get());
                removal->m_request = nullptr; // before the caller goes on, who may expect to hold the last reference
            } else {
                manager.removeAllRequests();
                removal->m_removed = true;
            }
            removal->m_done.set();
        }
    }
    forgetAsked(due);
    dropAdditionsBefore(due);
    startPendingRequests(manager);
}

// Those that had to wait for a removal, and were removed themselves since.
void CAsyncNetRequestThread::dropAdditionsBefore(const RemovalArray& removals)
{
    const kx::CMutexLock lock(m_addMutex);
    std::erase_if(m_pendingAdditions, [&removals](const CAddition& addition) {
        return std::any_of(removals.begin(), removals.end(), [&addition](const kx::P<CRemoveRequest>& removal) {
            return removal->concerns(*addition.request) && removal->m_order > addition.order;
        });
    });
}

CAsyncNetRequestThread::RemovalArray CAsyncNetRequestThread::askedRemovals()
{
    const kx::CMutexLock lock(m_askedMutex);
    return m_askedRemovals;
}

void CAsyncNetRequestThread::forgetAsked(const RemovalArray& removals)
{
    const kx::CMutexLock lock(m_askedMutex);
    std::erase_if(m_askedRemovals, [&removals](const kx::P<CRemoveRequest>& removal) {
        return std::find(removals.begin(), removals.end(), removal) != removals.end();
    });
}

CAsyncNetRequestThread::RemovalArray CAsyncNetRequestThread::pendingRemovals()
{
    const kx::CMutexLock lock(m_removeMutex);
    return m_pendingRemovals;
}

} // namespace norla
