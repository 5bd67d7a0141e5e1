#pragma once

#include "kx/base/CError.h"

namespace support {

/// What the action throws; null when it throws nothing.
template <typename TAction>
kx::P<kx::CError> errorOf(TAction action)
{
    try {
        action();
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

/// The message of what the action throws; "(no error)" when it throws nothing.
template <typename TAction>
kx::String messageOf(TAction action)
{
    const auto error = errorOf(action);
    return error ? error->getMessage() : "(no error)";
}

} // namespace support
