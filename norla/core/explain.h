#pragma once

#include "kx/base/CError.h"

namespace norla {

/// An error as one English sentence for a person: what has failed, with which host and which path, and what the server
/// has said about it, where it has said something; of that at most 200 characters, and no control characters. There is
/// no user, password or query in it but for what the server says. Of errors that are of no transfer it is their own
/// message. Any thread.
[[nodiscard]] KX_EXPORT kx::String explain(const kx::CError& error);

} // namespace norla
