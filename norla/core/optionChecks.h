#pragma once

#include <curl/curl.h>

#include <string_view>

namespace norla {

/// What a setter hands to libcurl, which reads it by the option's type and checks nothing.
enum class OptionValue { number, text, pointer };

/// Keeps libcurl from taking one thing for another, such as a number for the address of a text.
/// An option that this libcurl does not know passes: libcurl refuses it.
/// @param functionName of the setter, for the error
/// @throws kx::CInvalidArgError naming the option
void requireOptionTakes(CURLoption option, OptionValue value, std::string_view functionName);

/// Refuses what would say more to the server than the option is for: a line end in a name, a password or a header field
/// begins another command or field. Texts that are passed on unchanged by design (URLs, which libcurl checks itself,
/// envelope senders, bodies) and names of files may hold line ends; a zero character, at which libcurl would cut the
/// text off, none may.
/// @throws kx::CInvalidArgError naming the option, never the text
void requireOptionText(CURLoption option, std::string_view text, std::string_view functionName);

} // namespace norla
