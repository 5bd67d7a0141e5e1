#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/files/CFileUpload.h"
#include "norla/pool/CTransferPool.h"
#include "norla/s3/CS3PutOptions.h"

#include <functional>

namespace norla {

class CS3Client;
class CS3UploadWay;

/// How a file becomes an object. Fields are named in the order in which they stand here.
struct CS3FileUploadOptions {
    /// What it is stored with: type, metadata, encryption, tags, conditions. An MD5 of all that is sent goes along and
    /// is compared in any case: `checksum` must be empty and `verify` true.
    CS3PutOptions object = {};

    /// Files of so many bytes and fewer are sent by one PUT, 0 to 5 GiB; larger ones by parts.
    long long threshold = 16LL << 20;

    /// As CS3ParallelUploadOptions: in bytes, of all parts but the last; 0: 8 MiB, or as many as it takes.
    long long partSize = 0;

    /// As CS3ParallelUploadOptions: parts at once, and what they may take of memory, in bytes.
    int atOnce = 4;
    long long memory = 64LL << 20;

    /// Of each attempt to send a part or the whole. Zero and the infinite span: none beside the limits of each request.
    kx::CTimeSpan partDeadline = {};

    /// Whether an object of that name is replaced. Otherwise it is an error that there is one: one is looked for before
    /// anything is sent, and the store is asked to see to it ("If-None-Match: *"), which not all do.
    bool overwrite = false;

    /// Whether an upload by parts of that object is gone on with that an earlier program has left: the newest one whose
    /// parts are as large as those of this file would be, and whose first part has the MD5 of this file's. Otherwise,
    /// and where the store lists none, a new one begins. Every part is compared by size and MD5 before it is left out.
    bool resume = true;

    /// That upload in place of what is looked for. One that the store does not have any more is an error then.
    kx::String uploadId = {};

    /// Whether an upload by parts stays at the store behind a failure or cancel(), to be resumed. Otherwise it is
    /// aborted, which takes ten seconds at most, and is not told when it fails.
    bool keepPart = true;

    /// After which failures the whole or a part is sent again. Where it has no word of its own, also the service's
    /// codes of CS3Client::performRequest() count as transient. What begins, lists and completes an upload, and asks
    /// for an object, is tried again as the client says.
    CRetryPolicy retries = CRetryPolicy();

    /// Where the transfers run; null: in a pool of its own. A reference is kept.
    kx::P<CTransferPool> pool = {};

    /// Called once an upload by parts has its id, on the thread of run(). What it throws ends the upload.
    std::function<void(const kx::String& uploadId)> onStarted = {};

    /// Called ten times a second at most, and once at the end. What it throws on the thread of run() ends the upload.
    std::function<void(const CFileProgress&)> onProgress = {};

    /// Where onProgress is called; null: on the thread of run().
    kx::P<IExecutor> executor = {};
};

/// Sends a file to a store, where it becomes an object whole or not at all:
///
///     kx::newObj<norla::CS3FileUpload>(client.get(), path, "bucket", "notes.txt")->run();
///
/// What is sent is the file as it was when run() began; where it changes before the store is told that this was all,
/// that is an error, there is no object, and nothing of it stays at the store. Behind the last byte the store is asked
/// for the object's size; one that does not let us look is believed. A pause withdraws the parts that are under way; a
/// file that is sent by one PUT begins anew behind it, unless the store may have all of it: then its answer is waited
/// for. Who cancels while the store makes the object may find it there.
///
/// For a client of an endpoint. run() uses the client and its credentials on its thread: nobody else uses them
/// meanwhile. Files that run at the same time have clients of their own; the second one that finds its client in use
/// fails. Of one file to one object there is one upload at a time: two would go on with each other's parts.
class KX_EXPORT CS3FileUpload : public CFileUpload {
public:
    using Options = CS3FileUploadOptions;

    /// @param client not null, kept by the caller at least as long as this object
    /// @param path of a regular file, which is opened by run()
    /// @throws kx::CInvalidArgError for null, an empty name, and naming the option that makes no sense
    CS3FileUpload(CS3Client* client, const Path& path, const kx::String& bucketName, const kx::String& objectName,
        const Options& options = {});
    ~CS3FileUpload() override;

    /// Of the object, as the store has told it. Known behind run(), and empty where the store tells none.
    const kx::String& getETag() const noexcept;

    /// Of the upload by parts that stays at the store behind a failure; else empty. Known behind run().
    const kx::String& getUploadId() const noexcept;

private:
    CS3FileUpload(std::shared_ptr<CS3UploadWay> way, const Path& path, const Options& options);

    const std::shared_ptr<CS3UploadWay> m_s3Way;
};

} // namespace norla
