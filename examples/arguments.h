#pragma once

#include "kx/base/CError.h"
#include "kx/files/TPathImpl.h"

#include <string>

/// What the command line and the environment give is bytes. Files are named by such bytes as they are; everything else
/// is text in UTF-8.
using Path = kx::TPathImpl<kx::CUnixPathTraits>;

/// @param name what an error calls the bytes, which are not shown: they may hold a password
inline kx::String textOf(const std::string& bytes, const kx::String& name)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        throw kx::CError(name + " is not text in UTF-8.");
    }
}

/// The name of a file, for people to read.
inline kx::String shownPath(const std::string& bytes)
{
    return Path::fromBytes(bytes).toString();
}
