#include "tests/support/runCurl.h"

namespace support {

CProcessRun runCurl(const std::vector<std::string>& arguments, const std::string& input)
{
    std::vector<std::string> all{"curl", "--silent", "--show-error", "--max-time", "20"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return CProcessRun({.arguments = all, .package = "curl", .input = input});
}

} // namespace support
