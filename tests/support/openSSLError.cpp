#include "tests/support/openSSLError.h"

#include <openssl/err.h>

#include <array>

namespace support {

void throwOpenSSLError(const std::string& what)
{
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_peek_last_error(), text.data(), text.size());
    ERR_clear_error();
    throw std::runtime_error(what + ": " + text.data());
}

} // namespace support
