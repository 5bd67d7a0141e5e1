#pragma once

#include "norla/core/CCallbackPair.h"

#include <curl/curl.h>

namespace norla {

class CEasyHandle;

/// What is called when a connection stands and before each request goes over it, the redirected ones too
/// (CURLOPT_PREREQFUNCTION): the request's own function while it wants one, and the application's. Used by the thread
/// of the transfer.
class CPrerequest {
public:
    /// @param handle outlives this object
    explicit CPrerequest(CEasyHandle& handle) noexcept;
    CPrerequest(const CPrerequest&) = delete;
    CPrerequest& operator=(const CPrerequest&) = delete;

    /// An option that takes a pointer was set by the application; others than its function and data are ignored.
    /// @throws CCURLError if libcurl refuses to keep the request's own
    void noticePointer(CURLoption option, void* value);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept { m_calls.forget(); }

    /// Puts the request's own function into the place of the application's, which callApplications() reaches then.
    /// @throws CCURLError if libcurl refuses
    void use(curl_prereq_callback callback, void* data) { m_calls.use(callback, data); }

    /// @return what the application's function answers; CURL_PREREQFUNC_OK when it has none
    int callApplications(char* peerIP, char* localIP, int peerPort, int localPort) const;

private:
    CCallbackPair m_calls;
};

} // namespace norla
