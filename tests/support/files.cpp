#include "tests/support/files.h"

#include "tests/support/systemError.h"

#include <array>
#include <fstream>
#include <pwd.h>
#include <stdexcept>
#include <unistd.h>

namespace support {

std::string readFile(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw std::runtime_error(file.string() + " cannot be read");
    std::string bytes;
    std::array<char, 64 << 10> block; // the sizes of some files, as those of /proc, are not told
    while (stream.read(block.data(), block.size()), stream.gcount() > 0)
        bytes.append(block.data(), static_cast<size_t>(stream.gcount()));
    return bytes;
}

void writeFile(const std::filesystem::path& file, std::string_view bytes)
{
    if (file.has_parent_path())
        std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream)
        throw std::runtime_error(file.string() + " cannot be written");
}

void giveToUser(const std::filesystem::path& folder, const std::string& user)
{
    const passwd* const owner = getpwnam(user.c_str());
    if (!owner)
        throw std::runtime_error("there is no user " + user);
    checked(chown(folder.c_str(), owner->pw_uid, owner->pw_gid), "chown");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        checked(chown(entry.path().c_str(), owner->pw_uid, owner->pw_gid), "chown");
}

std::vector<std::string> splitLines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

} // namespace support
