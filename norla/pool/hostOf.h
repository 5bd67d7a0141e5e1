#pragma once

#include <string>
#include <string_view>

namespace norla {

/// What the connections of a request with that URL belong to: its scheme, host and port. Told apart as texts, without
/// asking libcurl: where several ways to write one host are mixed, each counts as a host of its own.
std::string hostOf(std::wstring_view url);

} // namespace norla
