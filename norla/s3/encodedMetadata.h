#pragma once

#include "kx/text/String.h"

namespace norla {

/// A value of user metadata as a header carries it: as it is, or in encoded words (RFC 2047 section 2) where it is not
/// ASCII, would be read as such a word or begins or ends in white space.
/// @throws kx::CError when it has no UTF-8 form
kx::String encodeMetadata(const kx::String& value);

/// Undoes that, and what stores make of it: words in "B" and "Q", of the charsets UTF-8, US-ASCII and ISO-8859-1, also
/// among other text. What is no such word stays as it is. Never fails.
kx::String decodeMetadata(const kx::String& header);

} // namespace norla
