#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/ftp/CFTPListDirResult.h"

namespace norla {

class CFTPClient;
class CNetRequest;

/// One run of CFTPClient::deleteDirWithAllContents(): on the caller's stack, used once.
class CFTPTreeDeletion {
public:
    /// @throws kx::CInvalidArgError for a path that does not name a directory from "/" on
    CFTPTreeDeletion(CFTPClient& client, CNetRequest& request, const kx::String& topDir);

    void run();

private:
    kx::P<CFTPListDirResult> listTop();
    kx::P<CFTPListDirResult> list(const kx::String& dir);
    kx::P<CFTPListDirResult> listFromLogin(const kx::String& dir);
    kx::P<CFTPListDirResult> listFromRoot(const kx::String& dir);
    bool isPlain(const kx::String& dir);
    kx::String escaped(const kx::String& dir);
    bool isListedFromRoot() const;
    void noteLogin();
    bool deleteDir(const kx::String& dir, const CFTPListDirResult& listing);
    bool deleteSubDir(const kx::String& dir);
    void deleteFile(const kx::String& path);
    void removeDir(const kx::String& dir);
    bool hasAllEntries(const kx::String& dir, const CFTPListDirResult& listing);

    CFTPClient& m_client;
    CNetRequest& m_request;
    const kx::String m_topDir;
    bool m_isLoginAtRoot = false;   // as told on the connection in use, by a login since this began
    kx::P<kx::CError> m_unreadable; // about the first line that was kept apart
};

} // namespace norla
