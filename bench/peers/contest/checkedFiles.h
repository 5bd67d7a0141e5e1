#pragma once

#include <filesystem>

namespace bench {

/// Whether two files have the same bytes; removes the first.
void requireSameFile(const std::filesystem::path& file, const std::filesystem::path& original);

/// The same for all the files in a folder. The folder stays.
void requireSameFiles(const std::filesystem::path& folder, const std::filesystem::path& original);

/// A file of bytes that nobody can compress.
void makeFile(const std::filesystem::path& file, long long size);

} // namespace bench
