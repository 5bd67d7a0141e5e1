#pragma once

#include <string>
#include <string_view>

namespace norla {

/// The SHA-256 of the bytes as 64 lower-case hexadecimal digits, as signatures V4 write it.
std::string hexSHA256(std::string_view bytes);

} // namespace norla
