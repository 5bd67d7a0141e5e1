#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/ftp/CFTPListDirResult.h"

#include <optional>

namespace norla {

/// Files and directories on one FTP server, plain or with TLS.
///
/// A prepare...Request() resets a request and fills it, for callers who perform it themselves, at once or in the
/// background; the other operations perform it too. One request may serve any number of operations, one after the
/// other, and so stays logged in. What fails throws what CNetRequest::perform() throws.
///
/// Paths are the server's own, as a rule from "/" on. They are sent as they are. In uploads, downloads, listings and
/// moves with createMissingDirs they stand in a URL, which libcurl takes only escaped ("my%20file") and reads from the
/// directory of the login on; the other operations put them into commands, which take them unescaped ("my file"). A
/// line end in a path would begin another command: never pass on a path with one. With the safe defaults it is an
/// error.
///
/// Immutable but for its setters: several threads may use one client with a request each.
class KX_EXPORT CFTPClient : public virtual kx::CBase {
public:
    enum ConnectType : int {
        ConnectUnencrypted = 0,
        ConnectExplicitTLS = 1, ///< AUTH TLS is required, for commands and data
        ConnectImplicitTLS = 2  ///< TLS from the first byte ("ftps://"), for commands and data
    };

    /// How libcurl goes to the directory of a path; CURLOPT_FTP_FILEMETHOD.
    enum CWDType : int {
        CWDInvalid = -1, ///< what suits the operation
        CWDSteps = 0,    ///< a CWD for every directory on the way
        CWDDirect = 1,   ///< one CWD to the directory
        CWDNone = 2      ///< no CWD, the whole path in the command
    };

    /// @param host "host" or "host:port"
    CFTPClient(const kx::String& host, const kx::String& userName, const kx::String& password, ConnectType connectType);
    CFTPClient(const CFTPClient&) = delete;
    CFTPClient& operator=(const CFTPClient&) = delete;
    ~CFTPClient() override;

    /// Overrides, for requests prepared afterwards, the way to a directory: a CWD for every step when missing
    /// directories are to be made, no CWD otherwise.
    void setOverrideCWDType(CWDType type) { m_overrideCWDType = type; }

    /// The certificates that the server is verified against, for requests prepared afterwards, as
    /// CNetRequest::setRootCertBundlePath(). Empty, as at first, for libcurl's own.
    void setRootCertBundlePath(const CNetRequest::Path& path) { m_rootCertBundlePath = path; }

    /// What every request that is prepared afterwards begins with, behind its reset, as CNetRequest::setSafeDefaults();
    /// those of operations that perform at once, too. Without that call nothing is set.
    void setSafeDefaults(const CSafeDefaults& defaults = {}) { m_safeDefaults = defaults; }

    /// Whether listings made by this client keep the lines that cannot be read apart
    /// (CFTPListDirResult::getUnreadableLines()); not at first, and then one such line is an error.
    void setKeepUnreadableLines(bool keep) { m_keepUnreadableLines = keep; }

    /// What every operation begins with.
    /// @param path follows the host in the URL; empty for operations that only send commands
    /// @param createMissingDirs whether directories that are missing on the way are made
    void beginPrepareRequest(CNetRequest& request, const kx::String& path, bool createMissingDirs);

    /// Stores a file, replacing an earlier one. The bytes are copied.
    /// @param size in bytes, 0 or more
    void prepareUploadRequest(
        CNetRequest& request, const kx::String& path, const void* data, int size, bool createMissingDirs);

    /// Fetches a file or a part of it into the request's receive sink.
    /// @param offset of the first byte, counted from 0
    /// @param length in bytes; -1 up to the end
    /// @throws kx::CInvalidArgError when offset + length is beyond 64 bits
    void prepareDownloadRequest(CNetRequest& request, const kx::String& path, long long offset, long long length);

    /// Fails when there is no such file or directory (MLST).
    void prepareVerifyExistsRequest(CNetRequest& request, const kx::String& path);

    /// As prepareVerifyExistsRequest(); make a CFTPGetInfoResult from the request's getResponseInfo() afterwards.
    void prepareGetInfoRequest(CNetRequest& request, const kx::String& path);

    /// Renames a file. @param createMissingDirs whether the target's directory is made; the target's path stands in a
    /// URL then
    void prepareMoveFileRequest(
        CNetRequest& request, const kx::String& fromPath, const kx::String& toPath, bool createMissingDirs);

    /// Renames a directory. @param createMissingDirs whether the target and its parents are made first, for servers
    /// that rename onto an empty directory; the target's path stands in a URL then
    void prepareMoveDirRequest(
        CNetRequest& request, const kx::String& fromDir, const kx::String& toDir, bool createMissingDirs);

    void prepareDeleteFileRequest(CNetRequest& request, const kx::String& path);
    void deleteFile(CNetRequest& request, const kx::String& path);

    /// Removes an empty directory.
    void prepareRemoveDirRequest(CNetRequest& request, const kx::String& path);
    void removeDir(CNetRequest& request, const kx::String& path);

    /// Makes a directory. @param recursive whether its missing parents are made too, and one that exists already is no
    /// error; the path stands in a URL then. That relies on libcurl sending no commands before a listing, as up to
    /// version 8.14: createDirs() does the same with every version, and with plain paths.
    void prepareCreateDirRequest(CNetRequest& request, const kx::String& path, bool recursive);
    void createDir(CNetRequest& request, const kx::String& path, bool recursive);

    /// Makes a directory and those of its parents that are missing; one that exists already is no error. It sends MKD
    /// for every directory on the way and then enters the last one: whatever the server has said of the MKDs, only a
    /// directory that can be entered counts as made.
    /// @param path unescaped ("my dir"); from the server's root on when it begins with "/", else from the directory of
    /// the login on. Empty parts ("a//b", "a/b/") do not count. Without a "/" at its start every step has a connection,
    /// and a login, of its own, because one that was open before may stand elsewhere.
    /// @throws kx::CInvalidArgError for an empty path and for control characters, before anything is sent
    /// @throws CCURLError as perform(); naming the first directory that can be neither entered nor made, with the
    /// server's words
    void createDirs(CNetRequest& request, const kx::String& path);

    /// Lists a directory by MLSD, which the server must know.
    void prepareListDirRequest(CNetRequest& request, const kx::String& path);

    /// @throws also as CFTPListDirResult, unless unreadable lines are kept
    kx::P<CFTPListDirResult> listDir(CNetRequest& request, const kx::String& path);

    /// Removes a directory with everything in it, entry by entry. Links and the like are left alone, as are names that
    /// lead elsewhere ("..", "a/b", "a\b"), and then the directory is too. The first failure ends it; what was removed
    /// until then stays removed.
    ///
    /// The path means the same as in a command, where "/" is the server's root. Where the server's answer to PWD at the
    /// login was not "/" (or is not known, as on a connection that was open before), the directory is listed a second
    /// time, from the root, before anything is deleted.
    ///
    /// What stands in unreadable lines that are kept (setKeepUnreadableLines()) is not deleted, nor are the directories
    /// around it; everything else is.
    /// @param dirPath begins with "/" and has no parts "." and ".."; "/" empties the root, and then fails to remove it
    /// @throws kx::CInvalidArgError for other paths, before anything is sent
    /// @throws kx::CError when what is inside is nested so deep that its path goes on for more than 4096 characters; at
    /// the end, naming the first of the unreadable lines that were kept
    void deleteDirWithAllContents(CNetRequest& request, const kx::String& dirPath);

    /// "CWDSteps" and so on. @throws kx::CError "Unknown CWDType: " and the number for anything else
    static kx::String cwdTypeToString(CWDType type);

private:
    friend class CFTPTreeDeletion;

    void setFileMethod(CNetRequest& request, bool createMissingDirs) const;
    void prepareCommandRequest(CNetRequest& request, const kx::String& command);
    kx::P<CFTPListDirResult> readListing(CNetRequest& request) const;
    void prepareRename(CNetRequest& request, const kx::String& fromPath, const kx::String& toPath);

    const kx::String m_host;
    const kx::String m_userName;
    const kx::String m_password;
    const ConnectType m_connectType;
    CWDType m_overrideCWDType = CWDInvalid;
    CNetRequest::Path m_rootCertBundlePath;
    std::optional<CSafeDefaults> m_safeDefaults;
    bool m_keepUnreadableLines = false;
};

} // namespace norla
