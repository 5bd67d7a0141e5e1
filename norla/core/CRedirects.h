#pragma once

#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "norla/core/COrigin.h"

#include <curl/curl.h>

#include <optional>
#include <string>

namespace norla {

class CEasyHandle;
class CRequestURL;
class CSentHeaders;

/// Where redirects may lead and what goes along with them, as CSafeDefaults describes it. Used by the thread of the
/// transfer.
class CRedirects {
public:
    /// @param handle outlives this object
    /// @param headers outlive this object
    CRedirects(CEasyHandle& handle, CSentHeaders& headers);
    CRedirects(const CRedirects&) = delete;
    CRedirects& operator=(const CRedirects&) = delete;

    /// Both false at first. @throws CCURLError if libcurl refuses
    void setRules(bool staySafe, bool keepSecrets);

    /// What was set; other options than those that matter here are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;
    void noticePointer(CURLoption option, void* value);
    void noticeText(CURLoption option, const std::string& bytes);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// A transfer begins. Sets nothing without rules. @throws CCURLError if libcurl refuses
    void begin(const CRequestURL& url);

    /// Whether beforeRequest() is to be called before each request.
    bool wantsToBeAsked() const noexcept { return m_staySafe || m_keepSecrets; }

    /// @throws CCURLError if libcurl refuses; the transfer has to end then
    void beforeRequest();

    /// Which redirect was refused and why, in words; empty when that is not how the transfer has ended.
    /// @param location what the last answer named; empty for nothing
    kx::String getRefusal(CURLcode result, const kx::String& location) const;

private:
    void showTexts();
    void stayWithinHTTPS();
    bool leadsElsewhere(const std::optional<COrigin>& origin) const;
    void leaveSecretsBehind();

    CEasyHandle& m_handle;
    CSentHeaders& m_headers;
    bool m_staySafe = false;
    bool m_keepSecrets = false;
    bool m_sendsReferrers = false;             // CURLOPT_AUTOREFERER
    unsigned int m_port = 0;                   // CURLOPT_PORT, which counts for the first URL alone
    kx::TMap<CURLoption, std::string> m_texts; // that may be secrets, as set
    bool m_areTextsHidden = false;             // from libcurl
    bool m_isWithinHTTPS = false;              // what libcurl has for CURLOPT_REDIR_PROTOCOLS_STR
    std::optional<COrigin> m_first;            // of the first request
    std::string m_lastURL;                     // of the last request; empty: there was none
    bool m_hasLeft = false;                    // the first origin
};

} // namespace norla
