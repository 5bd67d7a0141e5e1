#pragma once

#include "kx/text/String.h"

#include <string>
#include <string_view>

namespace norla {

// What may be shown of a URL: never a login. URLs here are bytes as libcurl has them.

/// In lower case; empty without one.
std::string schemeOf(std::string_view url);

/// The URL without user and password. Of a URL that nobody can read, rather too much goes than a part of these.
std::string withoutLogin(std::string_view url);

/// The URL without login, query and fragment. Of one that can be read, or otherwise of any text at all: rather too much
/// goes than a part of a login.
std::string withoutSecrets(std::string_view url, bool canBeRead);

/// "host:port", or "host" without a port; an IPv6 address stays in its brackets. Empty when there is none.
std::string hostOf(std::string_view url);

/// From its first slash on, without query and fragment; empty when there is none.
std::string pathOf(std::string_view url);

/// UTF-8 as it is, anything else as ISO 8859-1: never fails but for want of memory.
kx::String readable(std::string_view bytes);

} // namespace norla
