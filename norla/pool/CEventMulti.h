#pragma once

#include "norla/core/CMultiHandle.h"
#include "norla/pool/CSocketEvents.h"

#include <chrono>
#include <optional>

namespace norla {

class CNetRequest;

/// A multi handle whose transfers go on when something happens to their sockets, or when their time has come
/// (curl_multi_socket_action(3)). Used by one thread at a time; its callbacks, which are those of the requests, come
/// within act().
class CEventMulti {
public:
    using CMoment = std::chrono::steady_clock::time_point;

    /// @param wakeDescriptor ends a wait() when it is readable
    /// @throws kx::CError when the system has no descriptor to give; as CGlobalInit::get()
    CEventMulti(int wakeDescriptor, long idleConnections);
    CEventMulti(const CEventMulti&) = delete;
    CEventMulti& operator=(const CEventMulti&) = delete;

    /// No request is in it any more.
    ~CEventMulti();

    /// The transfer begins, with the next act(). @throws CCURLError when libcurl refuses
    void add(CNetRequest& request);

    /// The transfer has ended.
    void remove(CNetRequest& request) noexcept;

    /// The transfer stops where it is.
    void withdraw(CNetRequest& request) noexcept;

    /// A transfer that has ended begins anew. @return whether libcurl takes it
    bool addAgain(CNetRequest& request) noexcept;

    /// Blocks until there is something to do. @param moment at most until then; empty: no limit
    void wait(std::optional<CMoment> moment) noexcept;

    /// Whether something that has happened was not acted on yet.
    bool hasEvents() const noexcept { return m_events.hasMore(); }

    /// Lets the transfers go on for which there is something to do: by one event, so that the others who wait, for an
    /// end or a start, do not wait for all that servers have to say.
    /// @return what libcurl as a whole fails with
    CURLMcode act() noexcept;

    /// @return whether a transfer has ended that was not told before
    bool takeEnd(const CURL*& handle, CURLcode& result) noexcept;

    /// In a child process: what it shares with its parent stays untouched when this goes.
    void forget() noexcept { m_multi.keepForEver(); }

private:
    // libcurl's, with this object as their data
    static int onSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* known) noexcept;
    static int onTimer(CURLM* handle, long milliseconds, void* self) noexcept;

    const int m_wakeDescriptor;
    CSocketEvents m_events;
    std::optional<CMoment> m_timer; // libcurl's
    CMultiHandle m_multi;           // goes first: libcurl tells of the sockets that it closes
    bool m_knowsAllSockets = true;  // when they open and close, so that they may be watched in between
    bool m_hasStuck = false;        // libcurl has kept one that it was told to let go
};

} // namespace norla
