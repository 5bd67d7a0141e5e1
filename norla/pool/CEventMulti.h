#pragma once

#include "norla/core/CMultiHandle.h"
#include "norla/core/IStallWatcher.h"

#include <chrono>
#include <optional>
#include <set>

namespace norla {

class CCallWatch;
class CNetRequest;
class CSocketEvents;

/// A multi handle whose transfers go on when something happens to their sockets, or when their time has come
/// (curl_multi_socket_action(3)). Used by one thread at a time; its callbacks, which are those of the requests, come
/// within act() and actOnTime().
class CEventMulti : private IStallWatcher {
public:
    using CMoment = std::chrono::steady_clock::time_point;

    /// @param events that watch its sockets, @param calls that watch what it asks of libcurl; both live longer
    /// @throws as CGlobalInit::get()
    CEventMulti(CSocketEvents& events, CCallWatch& calls, long idleConnections);
    CEventMulti(const CEventMulti&) = delete;
    CEventMulti& operator=(const CEventMulti&) = delete;

    /// No request is in it any more.
    virtual ~CEventMulti();

    /// The transfer begins, when its time comes. @throws CCURLError when libcurl refuses
    void add(CNetRequest& request);

    /// The transfer has ended.
    void remove(CNetRequest& request) noexcept;

    /// The transfer stops where it is.
    void withdraw(CNetRequest& request) noexcept;

    /// A transfer that has ended begins anew. @return whether libcurl takes it
    bool addAgain(CNetRequest& request) noexcept;

    /// How many are in it, with those that libcurl has kept.
    size_t getCount() const noexcept { return m_count; }

    /// Lets the transfer go on that uses the socket. @param bits CURL_CSELECT_
    /// @return what libcurl as a whole fails with
    CURLMcode act(curl_socket_t socket, int bits) noexcept;

    /// When libcurl wants actOnTime(); empty: not at all.
    std::optional<CMoment> getTime() const noexcept;

    /// Lets those go on whose time has come. @return as act()
    CURLMcode actOnTime() noexcept;

    /// @return whether a transfer has ended that was not told before
    bool takeEnd(const CURL*& handle, CURLcode& result) noexcept;

    /// In a child process: what it shares with its parent stays untouched when this goes.
    void forget() noexcept { m_multi.keepForEver(); }

protected:
    /// getTime() is another one: by what this was told to do, or because an application has spoken to libcurl within a
    /// callback (curl_easy_pause(3)).
    virtual void onTimeChange() noexcept {}

private:
    void setMayStall(CURL* handle, bool mayStall) noexcept override;
    std::chrono::steady_clock::duration getCallDuration() const noexcept override;

    // libcurl's, with this object as their data
    static int onSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* known) noexcept;
    static int onTimer(CURLM* handle, long milliseconds, void* self) noexcept;

    CSocketEvents& m_events;
    CCallWatch& m_calls;
    size_t m_count = 0;
    std::optional<CMoment> m_time;
    std::set<CURL*> m_stalling;
    CMoment m_nextLook;            // at these
    CMultiHandle m_multi;          // goes first: libcurl tells of the sockets that it closes
    bool m_knowsAllSockets = true; // when they open and close, so that they may be watched in between
    bool m_hasStuck = false;       // libcurl has kept one that it was told to let go
};

} // namespace norla
