#include "norla/s3/crc32c.h"

#include <array>

namespace norla {

namespace {

constexpr unsigned bitsOfAByte = 8;

constexpr std::array<std::uint32_t, 256> crc32cTable()
{
    constexpr std::uint32_t polynomial = 0x82F63B78; // 0x1EDC6F41 with its bits in the order of transmission
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t value = byte;
        for (unsigned bit = 0; bit < bitsOfAByte; ++bit)
            value = (value & 1) != 0 ? (value >> 1) ^ polynomial : value >> 1;
        table[byte] = value;
    }
    return table;
}

} // namespace

std::uint32_t crc32c(std::string_view bytes, std::uint32_t before) noexcept
{
    static constexpr std::array<std::uint32_t, 256> table = crc32cTable();
    std::uint32_t value = ~before;
    for (const char byte : bytes)
        value = table[(value ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (value >> bitsOfAByte);
    return ~value;
}

} // namespace norla
