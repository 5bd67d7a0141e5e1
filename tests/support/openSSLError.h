#pragma once

#include <stdexcept>
#include <string>

namespace support {

/// @throws std::runtime_error with the newest error of OpenSSL's queue of this thread, which it empties
[[noreturn]] void throwOpenSSLError(const std::string& what);

/// @return the pointer that an OpenSSL function answered
/// @throws std::runtime_error if it is null
template <typename TObject>
TObject* checkedOpenSSL(TObject* object, const char* what)
{
    if (!object)
        throwOpenSSLError(what);
    return object;
}

/// @throws std::runtime_error unless the result is positive
inline void checkOpenSSL(int result, const char* what)
{
    if (result <= 0)
        throwOpenSSLError(what);
}

} // namespace support
