#pragma once

#include "examples/text.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

/// Does something with a file of the library; what it throws is then known as the failure of a local file.
template <typename TAction>
auto withLocalFile(TAction action)
{
    try {
        return action();
    } catch (const kx::CError& error) {
        throw kx::CError(error.getMessage(), "file");
    }
}

/// The path of a file that the library is to read, for which it has errors that name no reason.
/// @throws as fileError()
inline Path readablePath(const std::string& name)
{
    const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        throw fileError("The file '" + shownPath(name) + "' cannot be read", errno);
    close(file);
    return Path::fromBytes(name);
}

/// Whether the library keeps what has come of another file under such a name.
inline bool isNameOfPart(const std::string& name)
{
    return name.ends_with(".norla-part") || name.ends_with(".norla-record") || name.ends_with(".norla-record.new");
}

/// @throws as fileError() where files cannot be made in the folder
inline void requireFolder(const std::string& folder)
{
    if (access((folder + "/.").c_str(), W_OK | X_OK) == 0)
        return;
    const int errorNumber = errno;
    throw fileError("The folder '" + shownPath(folder) + "' cannot be written", errorNumber);
}
