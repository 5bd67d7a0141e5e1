#pragma once

#include "kx/base/visibility.h"

#include <exception>

namespace norla {

/// What an error means for who has to act upon it, whatever protocol or class it is of.
enum class ErrorKind {
    Unknown,           ///< nothing of the below can be told
    InvalidArgument,   ///< the call itself is wrong: a URL that nobody can read, a refused option
    OutOfMemory,       ///< here
    Cancelled,         ///< the program has ended it
    NotFound,          ///< there is no such file, object, bucket or page
    Denied,            ///< not for this user
    Login,             ///< user, password, token or signature is wrong, or missing; of a proxy too
    Certificate,       ///< the server's certificate or SSH key is not what it should be, or ours cannot be used
    Encryption,        ///< no encryption can be agreed on, or it is demanded and not to be had
    NameLookup,        ///< nobody knows the host, or the proxy
    Unreachable,       ///< nobody answers at the address, or the proxy cannot get there
    ConnectTimeout,    ///< the server is not connected and ready in time
    InactivityTimeout, ///< it has fallen silent
    TotalTimeout,      ///< all in all it takes too long
    ConnectionLost,    ///< in the middle of it
    RecipientRefused,  ///< for good, by a mail server
    Full,              ///< a disk, here or there, a mailbox or a quota
    TooLarge,          ///< for the server, or for a limit of the program
    Temporary,         ///< the server is busy, overloaded or out of order, and asks to come again
    Protocol,          ///< the server has said something that makes no sense, or led in circles or astray
    Refused,           ///< the server does not want it, for another reason
};

/// Any thread. Never fails; of an error that says nothing by itself the cause counts (kx::CError::getCause()). What FTP
/// servers mean by their status 550, a file that is missing or one that is kept back, is taken from their English.
[[nodiscard]] KX_EXPORT ErrorKind getErrorKind(const std::exception& error) noexcept;

} // namespace norla
