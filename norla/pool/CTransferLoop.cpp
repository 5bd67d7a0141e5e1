#include "norla/pool/CTransferLoop.h"

#include "kx/log/log.h"
#include "norla/core/CManagedRequest.h"
#include "norla/pool/CTransferSchedule.h"
#include "norla/pool/hostOf.h"

#include <algorithm>
#include <string>
#include <utility>

namespace norla {

namespace {

constexpr auto progressInterval = std::chrono::milliseconds(100);

bool isLimit(const kx::CTimeSpan& span) noexcept
{
    return !span.isInfinite() && span != kx::CTimeSpan();
}

/// The clock does not reach as far as a span does; nobody waits for a hundred years either.
CTransferWork::CMoment momentAfter(CTransferWork::CMoment start, const kx::CTimeSpan& span) noexcept
{
    constexpr std::chrono::microseconds hundredYears = std::chrono::hours(100 * 365 * 24);
    return start + std::clamp(std::chrono::microseconds(span.getMicroseconds()), {}, hundredYears);
}

std::optional<CTransferWork::CMoment> endOf(CTransferWork::CMoment start, const kx::CTimeSpan& limit) noexcept
{
    if (!isLimit(limit))
        return {};
    return momentAfter(start, limit);
}

/// Of all attempts together.
kx::CTimeSpan limitOfAll(const CTransferWork& work) noexcept
{
    const kx::CTimeSpan& deadline = work.getOptions().deadline;
    const kx::CTimeSpan& budget = work.getOptions().retries.budget;
    if (!isLimit(budget) || (isLimit(deadline) && deadline.getMicroseconds() < budget.getMicroseconds()))
        return deadline;
    return budget;
}

/// "2 seconds" or "1500 milliseconds".
kx::String describe(const kx::CTimeSpan& span)
{
    const long long milliseconds = std::max(0LL, span.getMicroseconds() / 1000);
    const bool isWhole = milliseconds % 1000 == 0;
    const long long count = isWhole ? milliseconds / 1000 : milliseconds;
    return kx::String::fromLatin1(
        std::to_string(count) + (isWhole ? " second" : " millisecond") + (count == 1 ? "" : "s"));
}

} // namespace

CTransferLoop::CTransferLoop(std::shared_ptr<CTransferSchedule> schedule, long idleConnections)
    : m_schedule(std::move(schedule))
    , m_lanes(m_inbox->getDescriptor(), idleConnections)
{
}

void CTransferLoop::run() noexcept
{
    m_inbox->setOwner(std::this_thread::get_id());
    for (;;) {
        if (!m_inbox->isEmpty())
            takeFromInbox();
        if (m_inbox->isStopAsked()) {
            while (!m_inbox->close())
                takeFromInbox(); // what has come in between, before the stop
            return;
        }
        if (!m_lanes.hasEvents())
            m_lanes.wait(m_timers.getFirst());
        const CURLMcode result = m_lanes.act();
        if (result != CURLM_OK)
            failAll(result);
        // A body without a length ends with its connection: to libcurl it is whole. All are asked to end before.
        if (!m_inbox->isEmpty() && m_lanes.hasEndedCalls())
            takeFromInbox();
        readEnds();
        actOnTime();
    }
}

void CTransferLoop::takeFromInbox()
{
    unsigned int asked = 0;
    while (const kx::P<CTransfer> transfer = m_inbox->take(asked))
        answer(CTransferWork::of(*transfer), asked);
}

void CTransferLoop::answer(CTransferWork& work, unsigned int asked)
{
    if (work.isDone())
        return;
    work.isWithdrawn = work.isWithdrawn || (asked & CLoopInbox::ToWithdraw);
    if (asked & (CLoopInbox::ToCancel | CLoopInbox::ToWithdraw)) {
        endBy(work, TransferState::Cancelled);
        return;
    }
    if (asked & CLoopInbox::ToFail) {
        endBy(work, TransferState::Failed);
        return;
    }
    if (asked & CLoopInbox::ToStart)
        start(work);
    if ((asked & CLoopInbox::ToLook) && work.isInMulti)
        look(work, std::chrono::steady_clock::now());
}

void CTransferLoop::start(CTransferWork& work)
{
    CNetRequest& request = *work.request;
    const CMoment now = std::chrono::steady_clock::now();
    work.setState(TransferState::Running);
    try {
        if (!work.hasBegun) {
            work.hasBegun = true;
            work.end = endOf(now, limitOfAll(work));
            work.retries.start();
        }
        work.attemptEnd = endOf(now, work.getOptions().attemptDeadline);
        if (work.wantsProgress())
            work.nextProgress = now + progressInterval;
        m_running.emplace(request.getEasyHandle(), &work);
        request.setAsyncInfo(false, CURLE_OK);
        m_lanes.add(request, work.place.lane);
        work.isInMulti = true;
        setTimer(work);
    } catch (const std::exception& error) {
        withdraw(work);
        CManagedRequest(request).fail(error);
        endAttempt(work, CURLE_ABORTED_BY_CALLBACK);
    }
}

void CTransferLoop::readEnds()
{
    const CURL* handle = nullptr;
    CURLcode result = CURLE_OK;
    while (m_lanes.takeEnd(handle, result)) {
        const auto found = m_running.find(handle);
        if (found == m_running.end())
            continue;
        CTransferWork& work = *found->second;
        if (CManagedRequest(*work.request).beginSecondAttempt()) {
            if (m_lanes.addAgain(*work.request, work.place.lane))
                continue;
            result = CURLE_USE_SSL_FAILED; // of the first attempt
        }
        CManagedRequest(*work.request).dropConnectionAfter(result);
        m_lanes.remove(*work.request, work.place.lane);
        work.isInMulti = false;
        m_running.erase(found);
        endAttempt(work, result);
    }
}

void CTransferLoop::withdraw(CTransferWork& work) noexcept
{
    m_running.erase(work.request->getEasyHandle());
    if (std::exchange(work.isInMulti, false))
        m_lanes.withdraw(*work.request, work.place.lane);
}

void CTransferLoop::failAll(CURLMcode reason) noexcept
{
    while (!m_running.empty()) {
        CTransferWork& work = *m_running.begin()->second;
        withdraw(work);
        try {
            CMultiHandle::check(reason);
        } catch (const std::exception& error) {
            CManagedRequest(*work.request).fail(error);
        }
        endAttempt(work, CURLE_ABORTED_BY_CALLBACK);
    }
}

void CTransferLoop::actOnTime()
{
    const CMoment now = std::chrono::steady_clock::now();
    while (CTransferWork* const work = m_timers.getDue(now))
        onTime(*work, now);
}

void CTransferLoop::onTime(CTransferWork& work, CMoment now)
{
    const CTransfer::Options& options = work.getOptions();
    if (work.end && *work.end <= now)
        expire(work, limitOfAll(work), "all its attempts");
    else if (work.attemptEnd && *work.attemptEnd <= now)
        expire(work, options.attemptDeadline, "one attempt");
    else if (work.nextAttempt && *work.nextAttempt <= now)
        goOn(work);
    else
        look(work, now);
}

void CTransferLoop::look(CTransferWork& work, CMoment now)
{
    work.setProgress(CManagedRequest(*work.request).getProgress());
    work.nextProgress = now + progressInterval;
    try {
        setTimer(work);
        work.tellProgress();
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's progress could not be told.");
    }
}

// Of all attempts, one that waits for its turn again ends with what the one before it has ended with.
void CTransferLoop::expire(CTransferWork& work, const kx::CTimeSpan& limit, const char* what)
{
    if (!work.isInMulti) {
        end(work, TransferState::Failed, work.lastError);
        return;
    }
    withdraw(work);
    CManagedRequest request(*work.request);
    try {
        request.failOverdue(describe(limit) + ", the time for " + kx::String::fromLatin1(what));
    } catch (const std::exception& error) {
        request.fail(error);
    }
    endAttempt(work, CURLE_OPERATION_TIMEDOUT);
}

void CTransferLoop::endBy(CTransferWork& work, TransferState state) noexcept
{
    CManagedRequest request(*work.request);
    const bool hasRun = work.isInMulti;
    withdraw(work);
    try {
        if (!hasRun)
            request.expect(); // what the attempt before has ended with says nothing of this end
        if (state == TransferState::Cancelled)
            request.fail(TransferLimit::None, "the transfer was cancelled");
        else
            request.fail(*work.getCallbackError());
    } catch (const std::exception& error) {
        request.fail(error);
    }
    const kx::P<kx::CError> error = record(work, CURLE_ABORTED_BY_CALLBACK);
    if (hasRun)
        recordFailure(work, *error);
    end(work, state, error);
}

kx::P<kx::CError> CTransferLoop::record(CTransferWork& work, CURLcode result) noexcept
{
    try {
        CManagedRequest request(*work.request);
        kx::P<kx::CError> error = request.endAttempt(result);
        if (work.hasBegun && work.wantsProgress()) // or else it would be that of the request's last transfer
            work.setProgress(request.getProgress());
        return error;
    } catch (const std::exception&) {
        return m_outOfMemory;
    }
}

void CTransferLoop::endAttempt(CTransferWork& work, CURLcode result) noexcept
{
    const kx::P<kx::CError> error = record(work, result);
    if (!error)
        succeed(work);
    else if (!pause(work, *error))
        end(work, TransferState::Failed, error);
}

void CTransferLoop::succeed(CTransferWork& work) noexcept
{
    try {
        if (work.hasRetries())
            work.retries.afterSuccess(*work.request);
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's attempt could not be recorded.");
    }
    recordAttempts(work);
    end(work, TransferState::Succeeded, nullptr);
}

void CTransferLoop::recordAttempts(CTransferWork& work) noexcept
{
    try {
        work.setAttempts();
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's attempts could not be recorded.");
    }
}

/// @return how long to wait before another attempt; empty: there is to be none
std::optional<kx::CTimeSpan> CTransferLoop::recordFailure(CTransferWork& work, const kx::CError& error) noexcept
{
    std::optional<kx::CTimeSpan> pause;
    try {
        pause = work.retries.afterFailure(*work.request, error);
    } catch (const std::exception& other) {
        kx::logErrorQuietly(
            other, "A transfer's attempt is the last one, because nobody knows whether it failed for good.");
    }
    recordAttempts(work);
    return pause;
}

bool CTransferLoop::pause(CTransferWork& work, const kx::CError& error) noexcept
{
    const std::optional<kx::CTimeSpan> pause = recordFailure(work, error);
    if (!pause)
        return false;
    const CMoment next = momentAfter(std::chrono::steady_clock::now(), *pause);
    if (work.end && next >= *work.end)
        return false;
    if (!work.retries.isReplaced())
        work.nextAttempt = next;
    work.attemptEnd.reset();
    work.nextProgress.reset();
    try {
        work.lastError = error.clone();
        setTimer(work);
    } catch (const std::exception&) {
        return false;
    }
    if (work.nextAttempt)
        makeRoom(work);
    else
        work.inbox->ask(work, CLoopInbox::ToStart); // in the room that it has
    return true;
}

void CTransferLoop::makeRoom(CTransferWork& work) noexcept
{
    work.setState(TransferState::Pausing);
    m_schedule->pause(work);
    m_schedule->startNext();
}

void CTransferLoop::goOn(CTransferWork& work)
{
    work.nextAttempt.reset();
    setTimer(work);
    work.setState(TransferState::Queued);
    try {
        m_schedule->addAgain(work, hostOf(CManagedRequest(*work.request).getURL().toWide()));
    } catch (const std::exception&) {
        end(work, TransferState::Failed, m_outOfMemory);
    }
    m_schedule->startNext();
}

// The request's owner is told first: who waits for the transfer may start the request again.
void CTransferLoop::end(CTransferWork& work, TransferState state, kx::P<kx::CError> error) noexcept
{
    m_timers.clear(&work, work.timer);
    const kx::P<CTransfer> transfer = m_schedule->remove(work);
    m_schedule->startNext();
    work.request->leaveManager();
    if (!work.isWithdrawn)
        CManagedRequest(*work.request).tellEnd(error.get());
    work.setEnd(state, std::move(error));
    work.tellEnd();
}

void CTransferLoop::setTimer(CTransferWork& work)
{
    const std::optional<CMoment> next = work.getNextMoment();
    if (next)
        m_timers.set(&work, work.timer, *next);
    else
        m_timers.clear(&work, work.timer);
}

} // namespace norla
