#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

namespace norla {

/// Parses an HTTP status line (RFC 9112 section 4), such as "HTTP/1.1 404 Not Found". The code is whatever integer stands
/// there; the reason text comes without surrounding white space and may be empty.
/// @throws kx::CError "Invalid HTTP status line: '...'"; `info` is unchanged then
KX_EXPORT void parseHTTPStatusLine(const kx::String& line, int& code, kx::String& info);

/// The code alone. @throws as parseHTTPStatusLine()
KX_EXPORT int getStatusCodeFromHTTPStatusLine(const kx::String& line);

/// The reason text alone. @throws as parseHTTPStatusLine()
KX_EXPORT kx::String getInfoFromHTTPStatusLine(const kx::String& line);

} // namespace norla
