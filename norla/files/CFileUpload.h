#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/files/CFileTransfer.h"
#include "norla/pool/CTransferPool.h"

#include <functional>
#include <memory>

namespace norla {

class IUploadWay;

/// How a file is sent. Fields are named in the order in which they stand here.
struct CFileUploadOptions {
    /// HTTP: whether the method is POST in place of PUT. A POST is tried again only where retries.repeatUnsafe says so,
    /// and overwrite does not count. Its content type is "application/octet-stream" unless a header says another.
    bool post = false;

    /// Whether HTTP's server is asked for the size afterwards (HEAD): another one than the file's is an error. A
    /// server that tells none is believed.
    bool askSizeAfterwards = false;

    /// Bytes a second; 0: no limit.
    long long speedLimit = 0;

    /// Whether a file of that name at the server is replaced. Otherwise it is an error that there is one: over FTP and
    /// SFTP one is looked for before anything is sent, and once more before the rename; over HTTP the server is asked
    /// to see to it ("If-None-Match: *"), which some do, and some replace the file all the same.
    bool overwrite = false;

    /// Over FTP and SFTP: whether the file is sent under a temporary name in the same folder, NAME.DIGITS.norla-part,
    /// and renamed once it is whole there. Otherwise a part of it may stay under its own name, and nothing is resumed.
    bool temporaryName = true;

    /// Whether a part that an earlier upload of the same file has left at the server is gone on with. Otherwise the
    /// file is sent anew.
    bool resume = true;

    /// Whether what has come to the server stays there behind a failure or cancel(), under the temporary name, to be
    /// resumed. Otherwise it is removed, which takes ten seconds at most, and is not told when it fails.
    bool keepPart = true;

    /// After which failures it is tried again. An attempt that has brought something counts as the first one again
    /// where that can be gone on with.
    CRetryPolicy retries = CRetryPolicy();

    /// Where the transfers run; null: in a pool of its own. A reference is kept.
    kx::P<CTransferPool> pool = {};

    /// Called ten times a second at most, and once at the end. What it throws on the thread of run() ends the upload.
    std::function<void(const CFileProgress&)> onProgress = {};

    /// Where onProgress is called; null: on the thread of run().
    kx::P<IExecutor> executor = {};
};

/// Sends a file over HTTP, HTTPS (PUT or POST), FTP, FTPS or SFTP:
///
///     kx::newObj<norla::CFileUpload>(url, path)->run();
///
/// What is sent is the file as it was when run() began. Where its size, its times or its inode change before the last
/// byte has left, that is an error ("The file '...' has changed while it was sent."), and nothing of the mixture stands
/// under the final name: HTTP's server does not get the end, the temporary file is removed.
///
/// Over HTTP a pause that comes when the server may have all of the file waits for its answer; so does one of a POST
/// that may not be tried again, as soon as something of the file has left.
///
/// Over FTP and SFTP it is sent into a temporary file, whose size is compared before that gets its name. A server that
/// tells no size (FTP's SIZE is refused) is believed when it has confirmed the end of the file. A later upload
/// of the same file to the same URL goes on behind the part that is there, when the first and the last 64 KiB of the
/// part are those of the file. One that runs at the same time is not noticed. The way to the folder is a CWD for each
/// step (CURLFTPMETHOD_MULTICWD), and the URL has neither query nor fragment. FTP servers replace a file by the rename;
/// over SFTP an older one is removed just before, so that there may be none of that name for a moment, or behind a
/// failure in that moment.
class KX_EXPORT CFileUpload : public CFileTransfer {
public:
    using Path = CNetRequest::Path;
    using Options = CFileUploadOptions;

    /// Makes a request ready for one step: URL, login, headers, trust. It has been reset, and has the safe defaults
    /// (CNetRequest::setSafeDefaults()); method, body, range and speed are set afterwards, and over FTP and SFTP the
    /// URL of the step. Over SFTP the limit of inactivity (CNetRequest::setDeadlines()) counts within commands, too,
    /// behind the one for a connection. Called on the thread of run(), and does the same each time; what it throws ends
    /// the upload.
    using Prepare = std::function<void(CNetRequest&)>;

    /// @param url with its scheme, of the file at the server
    /// @param path of a regular file, which is opened by run()
    /// @throws kx::CInvalidArgError naming the option that makes no sense
    CFileUpload(const kx::String& url, const Path& path, const Options& options = {});
    CFileUpload(Prepare prepare, const Path& path, const Options& options = {});
    ~CFileUpload() override;

protected:
    /// For classes of this library. @param way not null
    CFileUpload(std::shared_ptr<IUploadWay> way, const Path& path, const Options& options);

private:
    void transfer() override;

    const Prepare m_prepare;                 // empty where there is a way
    const std::shared_ptr<IUploadWay> m_way; // null where there is none
    const Path m_path;
    const Options m_options;
};

} // namespace norla
