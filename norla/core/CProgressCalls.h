#pragma once

#include "norla/core/CCallbackPair.h"

#include <curl/curl.h>

namespace norla {

class CEasyHandle;

/// What is called again and again while a transfer goes on (CURLOPT_XFERINFOFUNCTION): the request's own function while
/// it wants one, and the application's. Used by the thread of the transfer.
class CProgressCalls {
public:
    /// @param handle outlives this object
    explicit CProgressCalls(CEasyHandle& handle) noexcept;
    CProgressCalls(const CProgressCalls&) = delete;
    CProgressCalls& operator=(const CProgressCalls&) = delete;

    /// An option was set by the application; others than those of its progress are ignored.
    /// @throws CCURLError if libcurl refuses to keep the request's own
    void noticePointer(CURLoption option, void* value);
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// Puts the request's own function into the place of the application's, which callApplications() reaches then.
    /// @throws CCURLError if libcurl refuses
    void use(curl_xferinfo_callback callback, void* data);

    /// @return what the application's function answers; 0, to go on, where it wants none to be called; and what makes
    /// libcurl show its own meter where it wants progress and has no function
    int callApplications(curl_off_t toDownload, curl_off_t downloaded, curl_off_t toUpload, curl_off_t uploaded) const;

private:
    CEasyHandle& m_handle;
    CCallbackPair m_calls;
    // the application's
    curl_progress_callback m_oldCallback = nullptr; // CURLOPT_PROGRESSFUNCTION, which the other one goes before
    bool m_isWanted = false;                        // CURLOPT_NOPROGRESS is 0
};

} // namespace norla
