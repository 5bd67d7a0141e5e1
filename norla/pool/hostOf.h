#pragma once

#include <string>

namespace norla {

class CNetRequest;

/// What the connections of a request belong to: scheme, host and port of its URL. Empty for a URL that nobody can read.
std::string hostOf(const CNetRequest& request);

} // namespace norla
