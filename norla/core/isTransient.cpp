#include "norla/core/isTransient.h"

#include "norla/core/CCURLError.h"
#include "norla/core/errorKind.h"

#include <algorithm>
#include <array>

namespace norla {

namespace {

using enum ErrorKind;

constexpr std::array transientKinds
    = {NameLookup, Unreachable, ConnectTimeout, InactivityTimeout, TotalTimeout, ConnectionLost, Temporary};

template <typename TValues, typename TValue>
bool contains(const TValues& values, const TValue& value)
{
    return std::find(values.begin(), values.end(), value) != values.end();
}

/// A disk that is full, a mail that is too large for now, encryption that is not to be had at the moment: with "4yz"
/// the server asks to come again (RFC 959 section 4.2, RFC 5321 section 4.2.1).
bool isTransientReply(const CCURLError& error)
{
    const kx::String domain = error.getProps().get("responseCodeDomain");
    if (domain == "smtp")
        return error.getServerReply().startsWith("4");
    return domain == "ftp" && error.getProps().get("responseCode").startsWith("4");
}

// libcurl has one result for handshakes that broke off and for those that have failed: the first have words of the
// socket's or of libcurl's own behind them, and none of OpenSSL's but these.
bool isBrokenHandshake(const CCURLError& error)
{
    constexpr std::array signs = {"SSL_connect: ", "unexpected eof while reading", "Recv failure: ", "Send failure: "};
    return std::any_of(signs.begin(), signs.end(), [&error](const char* sign) {
        return error.getMessage().find(kx::String::fromLatin1(sign)) != kx::String::npos;
    });
}

bool isTransientTransfer(const CCURLError& error, ErrorKind kind)
{
    constexpr std::array http2Results = {CURLE_HTTP2, CURLE_HTTP2_STREAM, CURLE_HTTP3};
    const auto result = static_cast<CURLcode>(error.getCode());
    switch (kind) {
    case Protocol:
        return contains(http2Results, result);
    case Full:
    case TooLarge:
        return isTransientReply(error);
    case Encryption:
        return result == CURLE_USE_SSL_FAILED ? isTransientReply(error)
                                              : result == CURLE_SSL_CONNECT_ERROR && isBrokenHandshake(error);
    default:
        return false;
    }
}

/// As getErrorKind() does: of an error that says nothing by itself the cause counts.
bool isTransientError(const kx::CError& error, ErrorKind kind)
{
    if (const auto* const transfer = dynamic_cast<const CCURLError*>(&error))
        return error.getDomain() == "curl" && isTransientTransfer(*transfer, kind);
    const kx::PC<kx::CError> cause = error.getCause();
    return cause && isTransientError(*cause, kind);
}

} // namespace

bool isTransient(const std::exception& error) noexcept
{
    try {
        const ErrorKind kind = getErrorKind(error);
        if (contains(transientKinds, kind))
            return true;
        const auto* const known = dynamic_cast<const kx::CError*>(&error);
        return known && isTransientError(*known, kind);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace norla
