#include "tests/support/configuration.h"

#include "tests/support/files.h"

#include <regex>
#include <stdexcept>

namespace support {

std::filesystem::path serverFile(const std::string& name)
{
    return std::filesystem::path(NORLA_TEST_SERVERS_DIR) / name;
}

std::string expandConfiguration(const std::string& name, const std::map<std::string, std::string>& values)
{
    static const std::regex placeholder("@([A-Z_]+)@");
    const std::string text = readFile(serverFile(name));
    std::string expanded;
    auto end = text.cbegin();
    for (std::sregex_iterator match(text.begin(), text.end(), placeholder), none; match != none; ++match) {
        const auto value = values.find((*match)[1]);
        if (value == values.end())
            throw std::runtime_error(name + " has no value for " + match->str());
        expanded.append(end, (*match)[0].first).append(value->second);
        end = (*match)[0].second;
    }
    return expanded.append(end, text.cend());
}

} // namespace support
