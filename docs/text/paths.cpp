#include "norla/core/CNetRequest.h"

#include <filesystem>

using Path = norla::CNetRequest::Path;

// The place of a file in a folder that the system has named, under a name that a person has typed.
Path placeOf(const std::filesystem::path& folder, const kx::String& name)
{
    return Path::fromBytes(folder.native()) / name;
}

// The way back: the same bytes.
std::filesystem::path systemPathOf(const Path& path)
{
    return path.toBytes();
}

// For a window or a terminal, and for nothing else: what is no UTF-8 is shown as U+FFFD.
std::string shownPathOf(const Path& path)
{
    return path.toString().toDisplayUTF8();
}
