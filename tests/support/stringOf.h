#pragma once

#include "kx/text/String.h"

#include <string>

namespace support {

inline kx::String stringOf(const std::string& utf8)
{
    return kx::String::fromUTF8(utf8);
}

} // namespace support
