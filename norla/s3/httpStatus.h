#pragma once

namespace norla {

// RFC 9110 section 15.
inline constexpr int httpOK = 200;
inline constexpr int httpPartialContent = 206;
inline constexpr int httpNotFound = 404;

} // namespace norla
