#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace support {

/// @throws std::system_error with the error that errno tells; the message names what was tried.
[[noreturn]] inline void throwSystemError(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// @return the result of a system call that answers -1 on failure
/// @throws std::system_error if the result is -1
template <typename TResult>
TResult checked(TResult result, const char* what)
{
    if (result == -1)
        throwSystemError(what);
    return result;
}

} // namespace support
