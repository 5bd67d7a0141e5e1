#pragma once

#include "norla/core/CCallbackPair.h"
#include "norla/core/CTLSOptions.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace sela {
class CPeerRecord;
}

namespace norla {

class CEasyHandle;

/// Who is believed in a TLS connection, and as whom one shows up oneself, when it was told by CTLSOptions; and what
/// there is to say when it was not believed. Used by the thread of the transfer.
class CTLSTrust {
public:
    /// @param handle outlives this object
    explicit CTLSTrust(CEasyHandle& handle);
    CTLSTrust(const CTLSTrust&) = delete;
    CTLSTrust& operator=(const CTLSTrust&) = delete;
    ~CTLSTrust();

    /// Looks at all of it before anything is set. @throws as CNetRequest::setTLSOptions()
    void set(const CTLSOptions& options);

    /// The least that is to be demanded: TLS 1.2 or newer, a certificate of a known issuer, for the right host. Who is
    /// known, what is shown to the server, and a newer version that is demanded stay as they are, whoever has set them.
    /// @throws CCURLError if libcurl refuses
    void demandProof();

    /// The same of a proxy, as a number of libcurl's. @return CURL_SSLVERSION_TLSv1_2 or newer
    long getLeastProxyVersion() const;

    /// What was set by the application; other options than those that matter here are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;
    /// @throws CCURLError if libcurl refuses to keep the request's own function, or to go back to the application's
    void noticePointer(CURLoption option, void* value);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    bool isSet() const noexcept { return m_isSet; }

    /// All that matters of a connection, to compare it with others; empty when nothing was told.
    const std::string& getDescription() const noexcept { return m_description; }

    /// A transfer begins.
    void begin() noexcept;

    /// What is to be said about a failure beside libcurl's words for it; empty when there is nothing.
    kx::String explain(CURLcode result, const kx::String& message) const;

private:
    void setDemands();
    void setRoots(const CTLSOptions& options);
    void setIdentity(const CTLSOptions& options);
    void setWatch();
    void setPath(CURLoption option, const CTLSOptions::Path& path, CURLINFO usual);
    static CURLcode contextCallback(CURL* handle, void* context, void* trust) noexcept;

    CEasyHandle& m_handle;
    const std::shared_ptr<sela::CPeerRecord> m_peer;
    CTLSOptions m_options;
    std::string m_description;
    bool m_isSet = false;
    // what the application demands by options
    TLSVersion m_leastSet = TLSVersion::TLS1_0;
    TLSVersion m_leastProxySet = TLSVersion::TLS1_0;
    CCallbackPair m_context;
};

} // namespace norla
