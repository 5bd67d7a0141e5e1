#include "norla/async/CAsyncNetRequestThread.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/threads/CMutexLock.h"
#include "kx/threads/CSignal.h"
#include "norla/async/CAsyncNetRequestManager.h"

namespace norla {

namespace {

constexpr int passMs = 100;          // what a new request may have to wait for
constexpr int livenessCheckMs = 250; // how often a waiting caller looks whether the thread is still there

} // namespace

/// One removal, shared by the caller who waits for it and the thread that carries it out.
class CAsyncNetRequestThread::CRemoveRequest : public kx::CBase {
public:
    explicit CRemoveRequest(CNetRequest* request)
        : m_request(request)
    {
    }

    kx::P<CNetRequest> m_request; // null: all of them
    kx::CSignal m_done;
    bool m_removed = false; // written before the signal is set, read after
};

CAsyncNetRequestThread::CAsyncNetRequestThread(IProgressHandler* progressHandler)
    : CThread(nullptr, true)
    , m_progressHandler(progressHandler)
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
    const kx::CMutexLock lock(m_addMutex);
    m_pendingAdditions.emplace_back(request);
}

bool CAsyncNetRequestThread::removeRequest(CNetRequest* request)
{
    const auto removal = kx::newObj<CRemoveRequest>(request);
    {
        const kx::CMutexLock lock(m_removeMutex);
        m_pendingRemovals.push_back(removal);
    }
    if (getCurrentID() == getID())
        return false; // it would wait for itself
    while (isAlive()) {
        if (removal->m_done.wait(livenessCheckMs))
            return removal->m_removed;
    }
    return false;
}

bool CAsyncNetRequestThread::removeAllRequests()
{
    return removeRequest(nullptr);
}

// The manager lives and dies here: its multi handle knows no other thread.
void CAsyncNetRequestThread::runImpl()
{
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

// Newest first. An entry goes by its position: the start of a transfer calls its source, which may add others meanwhile.
void CAsyncNetRequestThread::startPendingRequests(CAsyncNetRequestManager& manager)
{
    const kx::CMutexLock lock(m_addMutex);
    while (!m_pendingAdditions.empty()) {
        const auto last = static_cast<std::ptrdiff_t>(m_pendingAdditions.size() - 1);
        manager.addRequest(m_pendingAdditions.back().get());
        m_pendingAdditions.erase(m_pendingAdditions.begin() + last);
    }
}

// What was added before its removal may have come after the additions of this pass: it is taken up first, and a removal that comes
// still later waits for the next pass. So nothing that was added and then removed is left running.
void CAsyncNetRequestThread::processRemoveRequests(CAsyncNetRequestManager& manager)
{
    size_t due = pendingRemovalCount();
    if (due == 0)
        return;
    startPendingRequests(manager);
    const kx::CMutexLock lock(m_removeMutex);
    for (; due > 0; --due) {
        const auto last = m_pendingRemovals.begin() + static_cast<std::ptrdiff_t>(due - 1);
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

size_t CAsyncNetRequestThread::pendingRemovalCount()
{
    const kx::CMutexLock lock(m_removeMutex);
    return m_pendingRemovals.size();
}

} // namespace norla
