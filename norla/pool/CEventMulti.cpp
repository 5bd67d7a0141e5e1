#include "norla/pool/CEventMulti.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CHeldCookies.h"
#include "norla/core/CManagedRequest.h"
#include "norla/pool/CCallWatch.h"
#include "norla/pool/CSocketEvents.h"

#include <algorithm>
#include <new>

namespace norla {

namespace {

constexpr auto stallPause = std::chrono::milliseconds(10);

} // namespace

CEventMulti::CEventMulti(CSocketEvents& events, CCallWatch& calls, long idleConnections)
    : m_events(events)
    , m_calls(calls)
    , m_multi(idleConnections)
{
    m_multi.getSockets().tellClosings([this](curl_socket_t socket) noexcept { m_events.forget(socket); });
    m_multi.getSockets().tellOpenings([this](curl_socket_t socket) noexcept { m_events.forget(socket); });
    CMultiHandle::check(curl_multi_setopt(m_multi.get(), CURLMOPT_SOCKETFUNCTION, &CEventMulti::onSocket));
    CMultiHandle::check(curl_multi_setopt(m_multi.get(), CURLMOPT_SOCKETDATA, this));
    CMultiHandle::check(curl_multi_setopt(m_multi.get(), CURLMOPT_TIMERFUNCTION, &CEventMulti::onTimer));
    CMultiHandle::check(curl_multi_setopt(m_multi.get(), CURLMOPT_TIMERDATA, this));
}

CEventMulti::~CEventMulti()
{
    if (m_hasStuck)
        m_multi.keepForEver();
}

int CEventMulti::onSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*known*/) noexcept
{
    auto& multi = *static_cast<CEventMulti*>(self);
    const bool mayGoUntold = what == CURL_POLL_REMOVE && !multi.m_knowsAllSockets;
    const bool isAnother = what != CURL_POLL_REMOVE && multi.m_events.isWatchedForNobody(socket)
        && !multi.m_multi.getSockets().hasOpened(socket);
    if (mayGoUntold || isAnother)
        multi.m_events.forget(socket);
    return multi.m_events.set(socket, what, &multi) ? 0 : -1;
}

int CEventMulti::onTimer(CURLM* /*handle*/, long milliseconds, void* self) noexcept
{
    auto& multi = *static_cast<CEventMulti*>(self);
    multi.m_time.reset();
    if (milliseconds >= 0)
        multi.m_time = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    multi.onTimeChange();
    return 0;
}

void CEventMulti::add(CNetRequest& request)
{
    CManagedRequest managed(request);
    m_knowsAllSockets = m_knowsAllSockets && !managed.opensSockets();
    managed.enterEvents(m_multi.getSockets(), *this);
    CMultiHandle::check(curl_multi_add_handle(m_multi.get(), request.getEasyHandle()));
    ++m_count;
}

void CEventMulti::remove(CNetRequest& request) noexcept
{
    const CCallWatch::CCall call(m_calls, m_multi.getSockets());
    m_stalling.erase(request.getEasyHandle());
    if (curl_multi_remove_handle(m_multi.get(), request.getEasyHandle()) == CURLM_OK) {
        --m_count;
        return;
    }
    m_hasStuck = true;
    request.addRef(); // for ever: libcurl keeps its handle
}

// libcurl would end a mail that it is sending as if it were whole; to a server that has gone it cannot.
void CEventMulti::withdraw(CNetRequest& request) noexcept
{
    try {
        CManagedRequest(request).beginWithdrawal();
    } catch (const std::exception&) {
        CManagedRequest(request).dropConnectionAfter(CURLE_OPERATION_TIMEDOUT);
    }
    remove(request);
    try {
        CManagedRequest(request).endWithdrawal();
    } catch (const std::exception& error) {
        CManagedRequest(request).fail(error);
    }
}

bool CEventMulti::addAgain(CNetRequest& request) noexcept
{
    const CCallWatch::CCall call(m_calls, m_multi.getSockets());
    return curl_multi_remove_handle(m_multi.get(), request.getEasyHandle()) == CURLM_OK
        && curl_multi_add_handle(m_multi.get(), request.getEasyHandle()) == CURLM_OK;
}

CURLMcode CEventMulti::act(curl_socket_t socket, int bits) noexcept
{
    const CCallWatch::CCall call(m_calls, m_multi.getSockets());
    int running = 0;
    m_multi.getSockets().noteTurn();
    const CURLMcode result = curl_multi_socket_action(m_multi.get(), socket, bits, &running);
    CHeldCookies::release();
    return result;
}

CURLMcode CEventMulti::actOnTime() noexcept
{
    m_time.reset();
    if (!m_stalling.empty() && m_nextLook <= std::chrono::steady_clock::now()) {
        m_nextLook = std::chrono::steady_clock::now() + stallPause;
        for (CURL* const handle : m_stalling)
            CEasyHandle::lookAgain(handle);
    }
    return act(CURL_SOCKET_TIMEOUT, 0);
}

std::optional<CEventMulti::CMoment> CEventMulti::getTime() const noexcept
{
    if (m_stalling.empty())
        return m_time;
    return std::min(m_time.value_or(m_nextLook), m_nextLook);
}

void CEventMulti::setMayStall(CURL* handle, bool mayStall) noexcept
{
    if (mayStall && m_stalling.empty())
        m_nextLook = std::chrono::steady_clock::now() + stallPause;
    try {
        if (mayStall)
            m_stalling.insert(handle);
        else
            m_stalling.erase(handle);
    } catch (const std::bad_alloc&) { // it goes on with libcurl's next time-out
        return;
    }
    onTimeChange();
}

std::chrono::steady_clock::duration CEventMulti::getCallDuration() const noexcept
{
    return std::chrono::steady_clock::now() - m_calls.getStart();
}

bool CEventMulti::takeEnd(const CURL*& handle, CURLcode& result) noexcept
{
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_multi.get(), &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        handle = message->easy_handle;
        result = message->data.result;
        return true;
    }
    return false;
}

} // namespace norla
