#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3CopySource.h"
#include "norla/s3/CS3MultipartOptions.h"
#include "norla/s3/CS3PartDigest.h"
#include "norla/s3/CS3UploadedPart.h"

#include <string>

namespace norla {

class CS3Client;

/// One object that is uploaded by parts, in the words of the store's documentation. Parts may be sent in any order and
/// more than once (the last one counts); all but the last have 5 MiB at least, and stores look at that in the end only.
/// An upload that is neither completed nor aborted is kept by the store, and paid for.
///
/// For a client of an endpoint: the signature of a client with a key does not hold for these operations. Used by one
/// thread at a time. After an error the object is as before and may be used on.
class KX_EXPORT CS3MultipartUpload : public kx::CBase {
public:
    /// Does nothing yet.
    /// @param client, request not null, kept by the caller at least as long as this object; each operation resets the
    /// request
    CS3MultipartUpload(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
        const kx::String& objectName, const CS3MultipartOptions& options = {});
    CS3MultipartUpload(const CS3MultipartUpload&) = delete;
    CS3MultipartUpload& operator=(const CS3MultipartUpload&) = delete;
    ~CS3MultipartUpload() override; ///< leaves the upload as it is

    // All of them throw as CS3Client::performCall(), CS3Error also for an error document behind the status of a success
    // (its HTTP status is 0 then), kx::CError for an answer that makes no sense or is longer than 16 MiB, and
    // kx::CInvalidArgError for a part's number that is not 1 to 10,000 and for an empty name.

    /// Begins an upload. @throws kx::CError when this object has one already
    void create();

    /// Goes on with an upload that was begun before, perhaps by another process. The store is not asked.
    /// @throws kx::CInvalidArgError for an empty id
    void attach(const kx::String& uploadId);

    /// Empty before create() and attach(), and behind complete() and abort().
    const kx::String& getId() const noexcept { return m_id; }

    /// Sends a part with its MD5, by which the store checks it, and compares the answer where that has the MD5.
    /// @param size in bytes, 0 or more
    /// @return the part's ETag
    /// @throws kx::CError "... has the ETag ..." when the store has other bytes
    kx::String uploadPart(int number, const void* data, size_t size);

    /// The same for so many bytes from a source's start. The source is read twice, first for the digests.
    /// @param source not null
    kx::String uploadPart(int number, CNetRequest::IDataSource* source, long long size);

    /// The first half of that, for callers who perform the request themselves, with their own one.
    void prepareUploadPart(
        CNetRequest& request, int number, CNetRequest::IDataSource* source, const CS3PartDigest& digest);

    /// The second half: looks at the answer to a request that has succeeded, and whether the part was sent before it.
    kx::String finishUploadPart(CNetRequest& request, int number, const CS3PartDigest& digest);

    /// Makes a part of what the store has already.
    /// @param start of the first byte, counted from 0
    /// @param length in bytes; -1: the whole object, and start is 0. A part has 5 GiB at most.
    kx::String uploadPartCopy(int number, const CS3CopySource& source, long long start = 0, long long length = -1);

    /// All parts that the store has, by number. From then on complete() means these.
    /// @throws kx::CError also when the list does not go on or does not end
    kx::TArray<CS3UploadedPart> listParts();

    /// Makes the object of the parts that this object has sent or listed, in the order of their numbers.
    /// @return its ETag; a store that does not tell it is asked for the object's headers. Empty when these do not
    /// either
    /// @throws kx::CError when there are none. An error of the store's leaves the upload: it may be completed once
    /// more. Another kx::CError, behind which the upload is over, when the store answers with the ETag of an object of
    /// another number of parts, or of other ones where the MD5 of each is known (CS3UploadedPart::md5).
    ///
    /// An upload that the store does not know any more counts as completed when the object has the ETag that these
    /// parts make: then the answer to an earlier attempt was lost.
    kx::String complete();

    /// The same for the parts that are named. @param parts by number
    kx::String complete(const kx::TArray<CS3UploadedPart>& parts);

    /// Gives it up: the store forgets the parts. An upload that is not there any more is a success. Parts that are
    /// being sent meanwhile may come behind it, and are kept.
    void abort();

private:
    CS3Call callFor(const kx::String& method, const CS3Call::Fields& parameters) const;
    CS3Call partCall(int number) const;
    std::string documentFor(CS3Call& call);
    void requireId() const;
    void forget() noexcept;
    kx::String keepPart(const CS3UploadedPart& part);
    kx::String eTagOfObject();

    CS3Client* const m_client;
    CNetRequest* const m_request;
    const kx::String m_bucketName;
    const kx::String m_objectName;
    const CS3MultipartOptions m_options;
    kx::String m_id;
    kx::TMap<int, CS3UploadedPart> m_parts;
};

} // namespace norla
