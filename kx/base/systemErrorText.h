#pragma once

#include "kx/text/String.h"

namespace kx {

/// What an error number of the system (errno) means, such as "No space left on device". The words are the same in every
/// locale; a number that the system does not know is told as such.
KX_EXPORT String systemErrorText(int errorNumber);

} // namespace kx
