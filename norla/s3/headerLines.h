#pragma once

#include "kx/base/P.h"
#include "norla/core/CNetHeaders.h"

#include <string>
#include <string_view>
#include <vector>

namespace norla {

/// In lower case. @param line of libcurl's list of headers: "Name: value", or "Name;" for one that is sent empty
std::string nameOfHeaderLine(std::string_view line);

/// The other lines, in their order. @param names in lower case
kx::P<CNetHeaders> headersWithout(const CNetHeaders& headers, const std::vector<std::string>& names);

} // namespace norla
