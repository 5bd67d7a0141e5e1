#pragma once

#include <cstdint>
#include <string_view>

namespace norla {

/// The checksum of RFC 3720 section 12.1 (CRC-32C). @param before of the bytes before these; 0 at first
std::uint32_t crc32c(std::string_view bytes, std::uint32_t before = 0) noexcept;

} // namespace norla
