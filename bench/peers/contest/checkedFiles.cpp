#include "bench/peers/contest/checkedFiles.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

constexpr long long blockSize = 1 << 20;

} // namespace

void requireSameFile(const std::filesystem::path& file, const std::filesystem::path& original)
{
    std::ifstream one(file, std::ios::binary);
    std::ifstream other(original, std::ios::binary);
    std::vector<char> block(blockSize);
    std::vector<char> otherBlock(blockSize);
    if (!one || !other || std::filesystem::file_size(file) != std::filesystem::file_size(original))
        throw std::runtime_error(file.native() + " is missing or has another size");
    while (other.read(otherBlock.data(), blockSize), other.gcount() > 0) {
        one.read(block.data(), blockSize);
        if (one.gcount() != other.gcount()
            || !std::equal(block.begin(), block.begin() + one.gcount(), otherBlock.begin()))
            throw std::runtime_error(file.native() + " has other bytes");
    }
    std::filesystem::remove(file);
}

void requireSameFiles(const std::filesystem::path& folder, const std::filesystem::path& original)
{
    for (const auto& entry : std::filesystem::directory_iterator(original))
        requireSameFile(folder / entry.path().filename(), entry.path());
    if (!std::filesystem::is_empty(folder))
        throw std::runtime_error(folder.native() + " has more files than there should be");
}

void makeFile(const std::filesystem::path& file, long long size)
{
    static std::mt19937_64 random(1); // the same bytes each time
    std::ofstream stream(file, std::ios::binary);
    std::vector<std::uint64_t> block(static_cast<size_t>(std::min(size, blockSize)) / sizeof(std::uint64_t) + 1);
    for (long long left = size; left > 0; left -= blockSize) {
        std::generate(block.begin(), block.end(), random);
        stream.write(reinterpret_cast<const char*>(block.data()), std::min(left, blockSize));
    }
    if (!stream.flush())
        throw std::runtime_error(file.native() + " cannot be written");
}

} // namespace bench
