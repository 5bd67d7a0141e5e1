#pragma once

#include "kx/base/CBase.h"
#include "kx/base/TSafeGlobalPointer.h"
#include "kx/containers/TArray.h"
#include "kx/files/TPathImpl.h"
#include "kx/threads/CMutex.h"

namespace kx {

/// Finds the files that the application ships beside its program. Any thread. Paths are the system's bytes (TPathImpl),
/// whatever their encoding.
///
/// Looked through in this order: the folders that the application adds, in the order of adding; "resources" beside the
/// executable; "../share/<name of the executable>" from there.
class KX_EXPORT CResourceManager : public CBase {
public:
    using Path = TPathImpl<CUnixPathTraits>;

    /// The process's instance. It knows the program by the path of the file that was started, also when this has been
    /// replaced or removed since.
    /// @throws CError "Construction of static object has failed." once the process is exiting
    static TSafeGlobalPointer<CResourceManager>& get();
    static CSafeGlobalGuard& globalInstanceGuard();

    /// @param executable path of the program that the resources belong to; one that is not absolute, as the empty one,
    /// counts as unknown: nothing is looked for beside it then
    explicit CResourceManager(const Path& executable);
    ~CResourceManager() override;

    /// @throws CInvalidArgError for a folder that is not absolute (it would be another one in each working directory)
    /// or whose path has a zero character
    void addResourceFolder(const Path& folder);

    /// The whole path of the first such file; empty when there is none.
    /// @param relativePath such as "norla/ca-bundle.crt"
    /// @throws CInvalidArgError for an absolute path, and for one with a zero character
    Path findResource(const Path& relativePath) const;

private:
    TArray<Path> folders() const;

    const Path m_executable;
    mutable CMutex m_mutex; // guards the folders
    TArray<Path> m_folders;
};

} // namespace kx
