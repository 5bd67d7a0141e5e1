#pragma once

#include <string>

namespace norla {

class CNetRequest;

/// What the connections of a request belong to: scheme, host and port of its URL. Told apart as texts, without asking
/// libcurl: where several ways to write one host are mixed, each counts as a host of its own.
std::string hostOf(const CNetRequest& request);

} // namespace norla
