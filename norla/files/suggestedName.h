#pragma once

#include "kx/text/String.h"

#include <string_view>

namespace norla {

/// The name that a Content-Disposition header gives a file (RFC 6266; "filename*" goes before "filename"), made safe:
/// one name without a folder, at most 255 bytes in UTF-8, that does not begin with a dot, nor end in a dot or a blank,
/// nor hold control characters, "/", "\" or what turns the direction of writing. Empty when there is none, or nothing
/// of it is left.
kx::String suggestedNameIn(const kx::String& contentDisposition);

/// The same of the last name of a URL's path, percent-decoded.
kx::String suggestedNameOf(std::string_view path);

} // namespace norla
