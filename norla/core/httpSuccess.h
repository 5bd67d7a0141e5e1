#pragma once

namespace norla {

/// Whether a status means success: 200 to 299 (RFC 9110 section 15.3). 0, of an answer without a status, does not.
constexpr bool isHTTPSuccess(int status) noexcept
{
    return status >= 200 && status <= 299;
}

} // namespace norla
