#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/core/CTLSOptions.h"

#include <optional>

namespace norla {

/// Where and how to reach a mail server, and how long to wait for it: a plain value. A time limit that is zero or
/// negative is refused when it is used.
class KX_EXPORT CSMTPParams : public virtual kx::CBase {
public:
    /// How the connection is secured. The numbers and texts are what applications store.
    enum ConnectType : int {
        ConnectUnencrypted = 0, ///< "unencrypted": never
        ConnectSSL = 1,         ///< "ssl": TLS from the first byte
        ConnectStartTLS = 2     ///< "starttls": TLS after STARTTLS, without which nothing is sent
    };

    CSMTPParams() = default;
    CSMTPParams(const CSMTPParams&) = default;
    CSMTPParams& operator=(const CSMTPParams&) = default;
    ~CSMTPParams() override;

    /// The type of that text; letter case matters.
    /// @throws kx::CInvalidArgError naming any other text
    static ConnectType connectTypeToInt(const kx::String& text);

    /// The text of that type.
    /// @throws kx::CInvalidArgError naming any other value
    static kx::String connectTypeToString(ConnectType type);

    /// Name or address; an IPv6 address in brackets.
    kx::String host;
    int port = 0;
    ConnectType connectType = ConnectUnencrypted;
    /// Empty for no login, whatever the password is.
    kx::String userName;
    kx::String password;

    /// Limits name lookup, connection, TLS and login, as CNetRequest::setConnectTimeout(). Infinite: the 30 seconds of
    /// every request. Below a millisecond counts as one.
    kx::CTimeSpan connectTimeout = kx::CTimeSpan::infinite();

    /// Limits the wait for each reply, also for one that makes no sense; rounded up to whole seconds, at most about 24
    /// days (CURLOPT_SERVER_RESPONSE_TIMEOUT). Infinite: libcurl's two minutes. A server may need long for the reply to
    /// a whole message: RFC 5321 section 4.5.3.2 gives it ten minutes there.
    kx::CTimeSpan responseTimeout = kx::CTimeSpan::infinite();

    /// Limits each operation as a whole, as CNetRequest::setFullRequestTimeout(). Infinite: no limit. Below a
    /// millisecond counts as one.
    kx::CTimeSpan fullTimeout = kx::CTimeSpan::infinite();

    /// What is wanted of every mail's transfer, as CNetRequest::setSafeDefaults(); `safeDefaults.emplace()` asks for
    /// all of it. With verifyTLS the server's certificate is verified before the password is told. Nothing, as at
    /// first: any certificate for that host is believed.
    std::optional<CSafeDefaults> safeDefaults = {};

    /// Who is believed and what the server is shown, as CNetRequest::setTLSOptions(); it counts in place of what
    /// safeDefaults says about TLS. Nothing, as at first: as safeDefaults has it.
    std::optional<CTLSOptions> tlsOptions = {};
};

} // namespace norla
