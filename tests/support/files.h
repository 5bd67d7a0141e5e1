#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// @return all bytes of the file
/// @throws std::runtime_error naming the file if it cannot be read
std::string readFile(const std::filesystem::path& file);

/// Writes the file anew, and the folders above it as needed.
/// @throws std::runtime_error naming the file if it cannot be written
void writeFile(const std::filesystem::path& file, std::string_view bytes);

/// Makes the user the owner of the folder and of everything in it, as a server needs it that root starts and that then
/// serves as that user.
/// @throws std::runtime_error if there is no such user, std::system_error if we may not
void giveToUser(const std::filesystem::path& folder, const std::string& user);

/// @return the lines without their line feeds; the bytes behind the last line feed count as a line if there are any
std::vector<std::string> splitLines(std::string_view text);

} // namespace support
