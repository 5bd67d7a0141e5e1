#pragma once

#include "kx/base/CError.h"

#include <curl/curl.h>

namespace norla {

/// A libcurl call or a transfer has failed. Domain "curl" with a CURLcode as code, or "curlm" with a CURLMcode.
///
/// Properties, each there only when it is known: "serverMessage", what the server said about it; "responseCode", its status
/// in decimal; "responseCodeDomain", what that status belongs to ("http", "ftp" or "smtp").
class KX_EXPORT CCURLError : public kx::CError {
public:
    /// The error's message is libcurl's own text for the code, then ": " and `message` unless that is empty, then the response
    /// code when it is greater than 0, as in "HTTP response code said error: ... (response code: http 404)".
    /// @param responseCodeDomain empty when there was no response
    /// @param responseCode 0 or less when there was no response
    CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage);

    /// The same for the multi interface.
    CCURLError(CURLMcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage);

    CCURLError(const CCURLError&) = default;
    ~CCURLError() override;

    kx::P<kx::CError> clone() const override;
    [[noreturn]] void throwClone() const override;
};

} // namespace norla
