#pragma once

#include <string>
#include <string_view>

namespace norla {

/// Writes as "%XX" for each byte of UTF-8 what a document of XML 1.0 must not hold (section 2.2), be it as it stands or
/// as a reference ("&#x01;"): control characters but tab, CR and LF, U+FFFE and U+FFFF. Some stores percent-encode the
/// keys of a listing and leave these in its next marker.
std::string withForbiddenCharactersEscaped(std::string_view utf8);

/// The same, and so each percent sign, so that whoever undoes all "%XX" has the text that was meant.
std::string withPercentSignsEscapedToo(std::string_view utf8);

} // namespace norla
