#pragma once

#include "kx/text/String.h"

namespace norla {

/// The text of a small HTML page for a person to read: tags are cut out (a "<" without a ">" after it stays), runs of blanks
/// become one and empty lines go, and so does white space at both ends. Entities stay as they are.
kx::String htmlToText(const kx::String& html);

} // namespace norla
