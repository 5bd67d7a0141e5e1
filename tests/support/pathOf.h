#pragma once

#include "kx/files/TPathImpl.h"

#include <filesystem>

namespace support {

inline kx::TPathImpl<kx::CUnixPathTraits> pathOf(const std::filesystem::path& file)
{
    return kx::TPathImpl<kx::CUnixPathTraits>::fromBytes(file.native());
}

} // namespace support
