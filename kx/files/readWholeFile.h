#pragma once

#include "kx/base/visibility.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"

#include <optional>
#include <string>

namespace kx {

/// All bytes of a file that a person keeps: settings, keys, lists. Waits for nothing: what is no file (a folder, a
/// pipe, a device) is refused, links are followed.
/// @param most how many bytes it may have
/// @throws CError naming the file and the reason
KX_EXPORT std::string readWholeFile(const TPathImpl<CUnixPathTraits>& path, size_t most);

/// The same; nothing when there is no file of that name.
KX_EXPORT std::optional<std::string> readWholeFileIfThere(const TPathImpl<CUnixPathTraits>& path, size_t most);

} // namespace kx
