#pragma once

#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "norla/core/CKnownHosts.h"

#include <chrono>

namespace norla {

/// A person's file of known SSH hosts. Read anew each time, and only ever added to: what others have written into it
/// stays as it is. A value.
class CKnownHostsFile {
public:
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    CKnownHostsFile() = default;
    explicit CKnownHostsFile(const Path& path)
        : m_path(path)
    {
    }

    /// .ssh/known_hosts of the user. @throws kx::CError when nothing tells the user's folder
    static Path usualPath();

    const Path& getPath() const noexcept { return m_path; }

    /// @return what knows nobody when there is no such file @throws kx::CError naming the file and the reason
    CKnownHosts read() const;

    /// Adds the host with this key, unless others, who may do so at the same time, have said something else of it since
    /// it was read. Makes the file (0600), and the folder that it is in (0700).
    /// @param patience for others who have locked the file
    /// @return what the file says of it now @throws kx::CError naming the file and the reason
    [[nodiscard]] CKnownHosts::Verdict add(const CKnownHosts::CHost& host, std::string_view key,
        std::chrono::milliseconds patience = std::chrono::seconds(5)) const;

private:
    [[noreturn]] void fail(const kx::String& reason) const;
    [[noreturn]] void fail(int errorNumber) const;
    int open() const;

    Path m_path;
};

} // namespace norla
