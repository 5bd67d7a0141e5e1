#pragma once

#include "kx/text/String.h"
#include "norla/files/CFileDownload.h"
#include "norla/s3/CS3Call.h"

#include <string>

namespace norla {

class CS3Client;

/// How an object is fetched into a file. Fields are named in the order in which they stand here.
struct CS3FileDownloadOptions {
    /// As of any download. Where `retries` has no word of its own, also the service's codes of
    /// CS3Client::performRequest() count as transient. `identity` empty: address, bucket, object and version.
    CFileDownloadOptions file = {};

    /// Which version; empty: the newest. Wants a client of an endpoint.
    kx::String versionId = {};

    /// The key that the object was stored with (CS3Encryption::customerKey), sent over TLS alone; empty: none.
    std::string customerKey = {};

    /// Whether the bytes are compared with what the store says of the whole object: an ETag that is an MD5, the headers
    /// x-amz-checksum-sha256 and -crc32c, which are asked for. The file is read once more for it.
    bool verify = true;

    CS3Call::Fields headers = {}; ///< more of them, sent as they are, such as x-amz-request-payer
};

/// Fetches an object of a store as CFileDownload fetches a file: whole or not at all, gone on with where an earlier
/// download has ended.
///
///     kx::newObj<norla::CS3FileDownload>(client.get(), "bucket", "notes.txt", path)->run();
///
/// Each attempt is a request of its own of the client's, signed anew, with its certificates and its safe defaults
/// (CS3Client::setSafeDefaults()). What the store says of clock and region is corrected as the client does it, and its
/// failures are CS3Errors. How often is tried again `file.retries` says, and not the client.
///
/// run() uses the client and its credentials on its thread: nobody else uses them meanwhile. Files that run at the same
/// time have clients of their own; the second one that finds its client in use fails.
class KX_EXPORT CS3FileDownload : public CFileDownload {
public:
    using Options = CS3FileDownloadOptions;

    /// @param client not null, kept by the caller at least as long as this object
    /// @param path the folder must be there; a link of that name is replaced, not followed
    /// @throws kx::CInvalidArgError for null, an empty name, and naming the option that makes no sense
    CS3FileDownload(CS3Client* client, const kx::String& bucketName, const kx::String& objectName, const Path& path,
        const Options& options = {});
    ~CS3FileDownload() override;

private:
    void transfer() override;

    CS3Client& m_client;
};

} // namespace norla
