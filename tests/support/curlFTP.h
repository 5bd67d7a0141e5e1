#pragma once

#include "tests/support/CProcessRun.h"

#include <string>
#include <vector>

namespace support {

class IFTPServer;

/// Runs curl as the server's user, who trusts the test authority and wants TLS wherever the server has it.
/// @param arguments may change that
CProcessRun curlFTP(const IFTPServer& server, const std::vector<std::string>& arguments);

} // namespace support
