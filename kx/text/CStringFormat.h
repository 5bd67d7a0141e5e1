#pragma once

#include "kx/text/String.h"

#include <utility>

namespace kx {

/// Text made as by printf, checked by the compiler: `CStringFormat("%04d-%02d", year, month)`. Text arguments are
/// UTF-8. Integers and text only: what printf writes for floating-point numbers depends on the process's locale.
class KX_EXPORT CStringFormat {
public:
    explicit CStringFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const String& toString() const& noexcept { return m_text; }
    String toString() && noexcept { return std::move(m_text); }

    // Implicit: it stands where the text is wanted. By value, so that a reference to the text of a temporary lasts.
    operator String() const& { return m_text; }
    operator String() && noexcept { return std::move(m_text); }

private:
    String m_text;
};

} // namespace kx
