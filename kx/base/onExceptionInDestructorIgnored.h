#pragma once

#include "kx/base/visibility.h"

#include <exception>

namespace kx {

/// What a destructor does with an error that it must not throw: reports it to the log and discards it. Never throws.
/// @param className full name of the class, such as "norla::CGlobalInit"
/// @param isError logged as an error; otherwise as a warning
KX_EXPORT void onExceptionInDestructorIgnored(
    const char* className, const std::exception& exception, bool isError) noexcept;

} // namespace kx
