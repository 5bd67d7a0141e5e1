#pragma once

#include "kx/containers/TArray.h"
#include "kx/text/String.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/TransferPhase.h"

#include <optional>

namespace norla {

/// What has happened in a transfer, as far as it came: CNetRequest::getTransferInfo(). A value; what is not known is
/// empty.
struct CTransferInfo {
    /// Moments, counted from the start of the transfer, in microseconds. Empty: not reached, or, where the transfer has
    /// used an open connection, not needed. After redirects each is the sum of its times in all hops.
    struct CTimes {
        std::optional<kx::CTimeSpan> nameLookup; ///< the host's address was known
        std::optional<kx::CTimeSpan> connect;    ///< the connection was there; of a failed TLS handshake maybe empty
        std::optional<kx::CTimeSpan> encryption; ///< TLS or SSH was agreed on
        std::optional<kx::CTimeSpan> request;    ///< the request was about to be sent; of FTP and mail the body
        std::optional<kx::CTimeSpan> firstByte;  ///< of the answer; older versions of libcurl count a sent body too
        std::optional<kx::CTimeSpan> redirects;  ///< the last hop began, after redirects or rounds of a login
        kx::CTimeSpan total;                     ///< the end
    };

    /// What TLS has agreed on with the server; of FTP on the connection for commands.
    struct CTLS {
        kx::String version;              ///< such as "TLSv1.3"
        kx::String cipher;               ///< OpenSSL's name of it, such as "TLS_AES_256_GCM_SHA384"
        kx::TArray<kx::String> subjects; ///< of the server's certificates, its own first ("CN=example.org,O=Example");
                                         ///< a resumed session may have that one alone
    };

    TransferPhase phase = TransferPhase::Unknown; ///< the last that was reached
    CTimes times;

    kx::String remoteAddress; ///< of the other end of the last connection, which may be a proxy: "127.0.0.1"
    int remotePort = 0;       ///< 0: unknown

    kx::String scheme;   ///< of the last hop, in lower case: "https"
    kx::String protocol; ///< "http/1.0", "http/1.1", "h2" or "h3" of an answer; of others than HTTP the scheme
    kx::String url;      ///< after redirects, without user and password
    int redirects = 0;   ///< that were followed
    bool isConnectionReused = false; ///< no connection was made: the last hop went over one that was open

    long long bytesDown = 0;                ///< of the body, as they came: before anything is unpacked
    long long bytesUp = 0;                  ///< of the body
    std::optional<long long> announcedDown; ///< the size of the body as the server has told it
    std::optional<long long> announcedUp;   ///< as the request has told it
    std::optional<CTLS> tls;                ///< empty without TLS, and where its handshake has failed
};

} // namespace norla
