#pragma once

#include "norla/core/COpenSockets.h"

#include <curl/curl.h>

#include <memory>

namespace norla {

/// A libcurl multi handle with the sockets of its connections. Used by one thread at a time.
class CMultiHandle {
public:
    /// @param idleConnections how many stay open when no transfer uses them. Beyond that libcurl closes one and waits
    /// for the server's answer to its goodbye, with every transfer waiting too
    /// @throws kx::CError "Error creating curl multi handle."; as CGlobalInit::get()
    explicit CMultiHandle(long idleConnections);
    CMultiHandle(const CMultiHandle&) = delete;
    CMultiHandle& operator=(const CMultiHandle&) = delete;

    /// Closes the connections: goodbyes are said, and not waited for. No request is in the handle any more.
    ~CMultiHandle();

    CURLM* get() const noexcept { return m_handle; }
    COpenSockets& getSockets() const noexcept { return *m_sockets; }

    /// The handle stays, with its sockets: it still has requests, which outlive it then, or it is not this process's.
    void keepForEver() noexcept;

    /// @throws CCURLError for a result that is none of success
    static void check(CURLMcode result);

private:
    std::unique_ptr<COpenSockets> m_sockets; // of the handle's connections
    CURLM* m_handle;
};

} // namespace norla
