#pragma once

#include "kx/text/String.h"

#include <cstddef>

inline kx::String repeated(const kx::String& text, size_t count)
{
    kx::String all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}
