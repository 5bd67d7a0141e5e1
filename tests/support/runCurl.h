#pragma once

#include "tests/support/CProcessRun.h"

#include <string>
#include <vector>

namespace support {

/// Runs the curl command, silent but for errors, for at most 20 seconds.
/// @param input what it reads from its standard input
/// @throws std::runtime_error if there is no such command
CProcessRun runCurl(const std::vector<std::string>& arguments, const std::string& input = {});

} // namespace support
