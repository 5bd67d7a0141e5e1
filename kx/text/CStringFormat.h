#pragma once

#include "kx/text/String.h"

namespace kx {

/// Text made as by printf, checked by the compiler: `CStringFormat("%04d-%02d", year, month)`. Text arguments are UTF-8.
/// Integers and text only: what printf writes for floating-point numbers depends on the process's locale.
class KX_EXPORT CStringFormat {
public:
    explicit CStringFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const String& toString() const noexcept { return m_text; }
    operator const String&() const noexcept { return m_text; } // implicit: it stands where the text is wanted

private:
    String m_text;
};

} // namespace kx
