#pragma once

#include "norla/core/CCookie.h"

#include <optional>
#include <string_view>

namespace norla {

/// Reads a line of a cookie file, in the form that Netscape's browser had and that libcurl reads and writes: domain,
/// "TRUE" if for subdomains too, path, "TRUE" if for https alone, expiry in seconds since 1970 (0: none), name and
/// value, with tabs between them; "#HttpOnly_" before it. What passes here says the same to libcurl.
/// @param line without its end
/// @return nothing when it is no such line; a comment is none either
std::optional<CCookie> parseCookieLine(std::string_view line);

/// Whether the line says nothing: a comment, or blanks.
bool isCookieComment(std::string_view line);

} // namespace norla
