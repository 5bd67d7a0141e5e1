#pragma once

#include "kx/containers/TMap.h"
#include "kx/text/String.h"

#include <string_view>

namespace norla {

/// What an HTTP server says in the body of an error response, for a person to read. Of HTML that is the text: tags are
/// cut out (a "<" without a ">" after it stays), runs of blanks become one, empty lines go and so does white space at
/// both ends; entities stay as they are. Anything else is taken unchanged.
/// @param body only its first 4096 bytes are looked at; a character that this limit cuts in two is left out
/// @param headers of the response, by lower-case name: a content-type that begins with "text/html" means HTML. So does
/// "<html" in the body.
/// @throws kx::CError when the body is not UTF-8
kx::String serverMessage(std::string_view body, const kx::TMap<kx::String, kx::String>& headers);

} // namespace norla
