#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

// What all of those that are compared do.
constexpr long long s3PartSize = 8LL << 20;
constexpr int s3PartsAtOnce = 4;
constexpr int s3ObjectsAtOnce = 8;

using Names = std::vector<std::string>;

/// The names of the files in a folder.
inline Names namesIn(const std::string& folder)
{
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

inline std::string bytesOf(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(std::filesystem::file_size(file), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream)
        throw std::runtime_error(file + " cannot be read");
    return bytes;
}

/// Of the environment.
inline std::string variable(const char* name)
{
    const char* const value = std::getenv(name);
    if (!value)
        throw std::runtime_error(std::string(name) + " is not set");
    return value;
}

inline std::string hexOf(const unsigned char* bytes, size_t count)
{
    std::string hex;
    for (size_t i = 0; i < count; ++i) {
        hex += "0123456789abcdef"[bytes[i] >> 4];
        hex += "0123456789abcdef"[bytes[i] & 15];
    }
    return hex;
}

} // namespace bench
