#pragma once

#include <curl/curl.h>

namespace norla {

class CEasyHandle;
class CRequestURL;

/// Whether a transfer has to be encrypted (CURLOPT_USE_SSL), and the watch that it is: libcurl takes an idle connection
/// without TLS for a transfer that demands it, and then neither asks for STARTTLS nor fails (7.88 and 8.14). What is
/// demanded is asked of every connection before the first command of the transfer itself goes out.
///
/// Belongs to one easy handle, whose owner sets the options: it tells what it has set, asks refusesConnection() before
/// each request while isMade(), and what came of it afterwards. Used by the thread that uses the handle.
///
/// What it cannot see: options that somebody sets on the handle itself, and that a connection through a proxy of scheme
/// "https" is encrypted only as far as that proxy.
class CTLSDemand {
public:
    /// @param handle outlives this object
    explicit CTLSDemand(const CEasyHandle& handle) noexcept;
    CTLSDemand(const CTLSDemand&) = delete;
    CTLSDemand& operator=(const CTLSDemand&) = delete;

    /// What the handle's owner has set. Other options than those that matter here are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// CURLUSESSL_CONTROL or more, and FTP's control connection is not to become plain again (CURLOPT_FTP_SSL_CCC).
    bool isMade() const noexcept;

    /// Whether the URL's protocol begins in plain text and is to be upgraded (CURLOPT_USE_SSL).
    bool isUpgraded(const CRequestURL& url) const;

    /// An attempt begins.
    void begin() noexcept { m_finding = Finding::None; }

    /// Whether the attempt was ended because its connection has no TLS.
    bool wasRefused() const noexcept { return m_finding != Finding::None; }

    /// Whether a connection of its own may help an attempt that was refused: it had one that was open before.
    bool canConnectionHelp() const noexcept { return m_finding == Finding::OldConnection; }

    /// What CURLOPT_FRESH_CONNECT was set to.
    bool isFreshConnectSet() const noexcept { return m_isFreshConnectSet; }

    /// Before a request goes out: whether its connection is not what is demanded, so that the attempt has to end.
    bool refusesConnection() noexcept;

private:
    enum class Finding { None, OldConnection, NewConnection };

    bool concernsThisProtocol() const noexcept;
    bool isConnectionPlain() const noexcept;

    const CEasyHandle& m_handle;
    long long m_useSSL = CURLUSESSL_NONE;
    long long m_clearControl = CURLFTPSSL_CCC_NONE;
    bool m_isFreshConnectSet = false;
    Finding m_finding = Finding::None;
};

} // namespace norla
