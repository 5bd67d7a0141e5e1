#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace support {

/// @return the path of a file in the source folder of the servers' configurations and scripts
std::filesystem::path serverFile(const std::string& name);

/// @return the text of such a file, every "@NAME@" in it replaced by the value of that name
/// @throws std::runtime_error if the file cannot be read or has a name without a value
std::string expandConfiguration(const std::string& name, const std::map<std::string, std::string>& values);

} // namespace support
