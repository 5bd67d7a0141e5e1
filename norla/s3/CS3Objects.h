#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Checksum.h"
#include "norla/s3/CS3CopyOptions.h"
#include "norla/s3/CS3GetOptions.h"
#include "norla/s3/CS3ObjectInfo.h"
#include "norla/s3/CS3PutOptions.h"

#include <string_view>

namespace norla {

class CS3Client;

/// What stores of today do with single objects: metadata, conditions, checksums, encryption, versions, tags.
///
///     CS3Objects objects(client.get(), request.get());
///     objects.put("bucket", "notes.txt", "text", {.contentType = "text/plain", .metadata = {{"author", L"Zoë"}}});
///
/// Every operation is performed at once, by CS3Client::performCall(), blocks, and throws what that throws besides what
/// is said here; the object may be used on. What is called with an empty name is a kx::CInvalidArgError. Used by one
/// thread at a time. Clients that were made with a key cannot sign what names a version.
class KX_EXPORT CS3Objects : public kx::CBase {
public:
    using Tags = kx::TMap<kx::String, kx::String>; // name to value

    /// @param client, request used for every operation, not null; the caller keeps both as long as this object
    /// @throws kx::CInvalidArgError for null
    CS3Objects(CS3Client* client, CNetRequest* request);
    CS3Objects(const CS3Objects&) = delete;
    CS3Objects& operator=(const CS3Objects&) = delete;
    ~CS3Objects() override;

    /// Stores an object, replacing an earlier one, or beside it as its newest version.
    /// @param bytes copied
    /// @return ETag, version, encryption and checksums, as far as the store tells them, and the size
    /// @throws kx::CError naming both where the store says that it has got other bytes, and where it says that it has
    /// stored them before all were sent; kx::CInvalidArgError for an option that makes no sense
    CS3ObjectInfo put(const kx::String& bucketName, const kx::String& objectName, std::string_view bytes,
        const CS3PutOptions& options = {});

    /// The same for bytes that come from a source, of which nothing is kept in memory; any size that the store takes.
    /// @param source not null, gives exactly `size` bytes from its start on; a reference is kept until the request is
    /// used for something else
    /// @param size in bytes, 0 or more
    CS3ObjectInfo put(const kx::String& bucketName, const kx::String& objectName, CNetRequest::IDataSource* source,
        long long size, const CS3PutOptions& options = {});

    /// Fetches an object, or a part of it. A part that ends behind the object's end is cut there, one that starts
    /// behind it is an error ("InvalidRange"), as any part of an empty object is.
    /// @param sink not null, gets the object alone, no error documents; a reference is kept until the request is used
    /// for something else. Its end() is called where all was in order.
    /// @throws kx::CError "The store was asked for ... and gave something else, ...", before any byte that was not
    /// asked for comes to the sink; kx::CError naming both where the bytes are not those that the store speaks of,
    /// which is known behind the last one
    CS3ObjectInfo get(const kx::String& bucketName, const kx::String& objectName, CNetRequest::IDataSink* sink,
        const CS3GetOptions& options = {});

    /// @param bytes not null, in place of what it holds; a reference is kept as to a sink
    CS3ObjectInfo get(const kx::String& bucketName, const kx::String& objectName, CNetRequest::Buffer* bytes,
        const CS3GetOptions& options = {});

    /// What is known of an object, without its bytes. @param options start, length and mostBytes are not looked at
    CS3ObjectInfo head(const kx::String& bucketName, const kx::String& objectName, const CS3GetOptions& options = {});

    /// Removes an object; one that does not exist is a success. In a bucket with versions it is marked as removed, and
    /// the version that marks it is what comes back; a version that is named is gone.
    /// @param versionId empty: no single version
    CS3ObjectInfo remove(
        const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId = kx::String());

    /// Copies an object on the store's side, up to the size of one PUT (5 GiB as a rule), also to another bucket.
    /// @return ETag, version, encryption and checksums of the copy, and when it was made
    /// @throws CS3Error "NoSuchKey" where there is no source, which it names ("s3-resource") unless the store names
    /// something; CS3Error with the status 0 where the store reports a failure behind the status of a success;
    /// kx::CError where it answers with something else; kx::CInvalidArgError for options that would be without effect
    CS3ObjectInfo copy(const kx::String& sourceBucketName, const kx::String& sourceObjectName,
        const kx::String& bucketName, const kx::String& objectName, const CS3CopyOptions& options = {});

    /// @param versionId empty: of the newest
    /// @throws kx::CError for a document that makes no sense
    Tags getTags(
        const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId = kx::String());

    /// In place of all that the object has. @throws kx::CError naming a text that XML has no way to write
    void setTags(const kx::String& bucketName, const kx::String& objectName, const Tags& tags,
        const kx::String& versionId = kx::String());
    void removeTags(
        const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId = kx::String());

private:
    CS3ObjectInfo performPut(CS3Call& call, const CS3PutOptions& options, CS3Checksum checksum);

    CS3Client* const m_client;
    CNetRequest* const m_request;
};

} // namespace norla
