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

    /// @param executable path of the program that the resources belong to
    explicit CResourceManager(const Path& executable);
    ~CResourceManager() override;

    void addResourceFolder(const Path& folder);

    /// The whole path of the first such file; empty when there is none.
    /// @param relativePath such as "norla/ca-bundle.crt"
    Path findResource(const Path& relativePath) const;

private:
    const Path m_executable;
    mutable CMutex m_mutex; // guards the folders
    TArray<Path> m_folders;
};

} // namespace kx
