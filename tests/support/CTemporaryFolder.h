#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace support {

/// A new, empty folder under the system's folder for temporary files, removed with everything in it when the object
/// goes.
class CTemporaryFolder {
public:
    /// @throws std::system_error
    CTemporaryFolder();
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder();

    const std::filesystem::path& path() const;

    /// Writes a file anew, and the folders above it as needed.
    /// @param name relative to the folder
    /// @return the file's path
    /// @throws std::runtime_error naming the file
    std::filesystem::path write(const std::filesystem::path& name, std::string_view bytes) const;

    /// @return all bytes of a file
    /// @param name relative to the folder
    /// @throws std::runtime_error naming the file
    std::string read(const std::filesystem::path& name) const;

private:
    std::filesystem::path m_path;
};

} // namespace support
