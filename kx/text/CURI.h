#pragma once

#include "kx/text/String.h"

namespace kx {

/// Escaping for URIs and forms.
class KX_EXPORT CURI {
public:
    /// Keeps the unreserved characters of RFC 3986 section 2.3 (letters, digits, "-._~") and the ASCII characters in
    /// `keep`. A space becomes "+"; "/" stays unless `escapeSlash`; every other byte of the text's UTF-8 form becomes
    /// %XX in upper case, so a literal "+" is %2B.
    /// @throws CError when the text has no UTF-8 form
    static String escape(const String& text, bool escapeSlash, const String& keep);
};

} // namespace kx
