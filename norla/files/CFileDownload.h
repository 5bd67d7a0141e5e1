#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/files/CFileTransfer.h"
#include "norla/pool/CTransferPool.h"

#include <functional>
#include <memory>
#include <optional>

namespace norla {

class IDownloadOrigin;

/// How a file is fetched. Fields are named in the order in which they stand here.
struct CFileDownloadOptions {
    /// What the file must be: another size, in bytes, or another digest, in hexadecimal digits of either case, is an
    /// error, behind which nothing of the file stays. Empty: whatever comes.
    std::optional<long long> expectedSize = {};
    kx::String sha256 = {};
    kx::String md5 = {};

    /// Connections at once, 1 to 16. More than one where HTTP's server gives parts and a strong validator, and while a
    /// mebibyte is left for each.
    int segments = 1;

    /// Bytes a second, of all connections together; 0: no limit. Several have the same share each. The first one has
    /// all of it until its answer shows that there may be several: then it is given up, and one of them fetches its
    /// rest.
    long long speedLimit = 0;

    /// Whether the file gets the time of its last change at the server, where that tells it.
    bool keepModificationTime = false;

    /// Mode bits of the file, 0 to 0777 in octal digits, such as 0600; those of a file's type are left out. Until it is
    /// whole its owner alone can read what has come. Empty: what the umask leaves, from the beginning on; behind an
    /// older part with mode bits, as that one has it.
    std::optional<unsigned> permissions = {};

    /// Whether a file of that name is replaced, once the new one is whole. Otherwise it is an error that there is one;
    /// and always one that there is a folder, a device, a pipe or a socket.
    bool overwrite = false;

    /// Whether a part that an earlier download has left is gone on with, where it can be proved that it is of the same
    /// resource. Otherwise, and where that cannot be proved, it is fetched anew.
    bool resume = true;

    /// Whether what has come stays behind a failure or cancel(), to be resumed: beside the file, with the ends
    /// ".norla-part" and ".norla-record". Where nothing can prove later what it is of, nothing stays.
    bool keepPart = true;

    /// What names the resource, where its URL is another one each time: a part is resumed under the same name only.
    /// Only a digest of it is stored. Empty: the URL without user and password.
    kx::String identity = {};

    /// After which failures it is tried again. An attempt that has brought something counts as the first one again
    /// where that can be gone on with.
    CRetryPolicy retries = CRetryPolicy();

    /// Where the transfers run; null: in a pool of its own. A reference is kept.
    kx::P<CTransferPool> pool = {};

    /// Called ten times a second at most, and once when all is there, before the file has its name. What it throws on
    /// the thread of run() ends the download.
    std::function<void(const CFileProgress&)> onProgress = {};

    /// Where onProgress is called; null: on the thread of run().
    kx::P<IExecutor> executor = {};
};

/// Fetches a file over HTTP, HTTPS, FTP, FTPS or SFTP that appears under its name whole or not at all, and goes on
/// where an earlier download has ended:
///
///     kx::newObj<norla::CFileDownload>(url, path)->run();
///
/// What has come is written beside the file, with a record of what it belongs to, and survives the end of the program
/// at any moment. It is gone on with when the server shows that it still has the same resource (a strong ETag, or a
/// Last-Modified a minute older than the answer; over FTP and SFTP size and time), and when the last bytes that are
/// there come again as they are; anything else is fetched anew. Who knows a digest says it: only that proves all.
///
/// A body that ends too early, is too long or is another part than was asked for is an error, and never under the
/// file's name. The program's own thread, or one of its own making, runs it: digests and disks take their time.
class KX_EXPORT CFileDownload : public CFileTransfer {
public:
    using Path = CNetRequest::Path;
    using Options = CFileDownloadOptions;

    /// Makes a request ready for one attempt: URL, login, headers, trust. It has been reset, and has the safe defaults
    /// (CNetRequest::setSafeDefaults()); range, sink and speed are set afterwards, and no compressed answer is asked
    /// for: one that comes all the same is stored as it comes. Over SFTP the limit of inactivity
    /// (CNetRequest::setDeadlines()) counts within commands, too, behind the one for a connection. Called on the thread
    /// of run(); what it throws ends the download.
    using Prepare = std::function<void(CNetRequest&)>;

    /// @param url with its scheme, which is one of the above: any other is an error of run()
    /// @param path the folder must be there; a link of that name is replaced, not followed
    /// @throws kx::CInvalidArgError naming the option that makes no sense
    CFileDownload(const kx::String& url, const Path& path, const Options& options = {});
    CFileDownload(Prepare prepare, const Path& path, const Options& options = {});
    ~CFileDownload() override;

    /// What the server calls the file (Content-Disposition, RFC 6266), or else the last name in the URL's path: one
    /// name without a folder, that neither begins with a dot nor holds anything that a file's name should not. The URL
    /// is the one that was asked for, also where it redirects to another. Known behind run(); empty when there is none.
    kx::String getSuggestedName() const;

    /// The same as far as the URL alone tells it, for who needs a path before anything is fetched. Empty for one whose
    /// path ends in "/" or in bytes that are no UTF-8: such a file needs a name of the program's own.
    static kx::String suggestNameFor(const kx::String& url);

protected:
    /// For classes of this library. @param origin not null
    CFileDownload(std::shared_ptr<IDownloadOrigin> origin, const Path& path, const Options& options);

    void transfer() override;

private:
    const std::shared_ptr<IDownloadOrigin> m_origin;
    const Path m_path;
    const Options m_options;
    kx::String m_suggestedName;
};

} // namespace norla
