#pragma once

#include <filesystem>
#include <string>

namespace support {

/// @param package a Debian package that scripts/install-packages unpacks instead of installing it, see there
/// @param file a file of the package, without the first "/", such as "usr/sbin/vsftpd"
/// @return where the file is: unpacked, or in the system if the package is installed
/// @throws std::runtime_error naming the package if it is neither
std::filesystem::path packageFile(const std::string& package, const std::filesystem::path& file);

} // namespace support
