#pragma once

#include "kx/base/visibility.h"

#include <exception>

namespace norla {

/// Whether the error may be gone when the same is tried again: a host that was not found or not reached, time-outs, a
/// connection that broke off, a failure of HTTP/2, the statuses 408, 425, 429, 500, 502, 503 and 504 of HTTP, and what
/// FTP and mail servers say with a status of 400 to 499, unless that is about user or password. Any thread. Never
/// fails.
[[nodiscard]] KX_EXPORT bool isTransient(const std::exception& error) noexcept;

} // namespace norla
