#pragma once

#include "kx/text/String.h"

#include <optional>
#include <string>

namespace norla {

/// What two URLs have in common that lead to the same server: scheme, host and port (RFC 6454, section 4).
struct COrigin {
    std::string scheme; // in lower case
    std::string host;   // in lower case, an IPv6 address in brackets
    unsigned int port = 0;

    /// Of a URL as libcurl reads it, with the port that its scheme has by default. Nothing when there is no scheme or
    /// host, or libcurl cannot read it.
    static std::optional<COrigin> of(const char* url);

    /// "https://host:8443", without a port that is the scheme's own. Never a login, path or query.
    kx::String toString() const;

    friend bool operator==(const COrigin&, const COrigin&) = default;
};

} // namespace norla
