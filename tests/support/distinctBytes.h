#pragma once

#include <string>

namespace support {

/// Bytes of which no two parts are the same. Those of a greater size begin with those of a smaller one. Any thread.
std::string distinctBytes(size_t size);

} // namespace support
