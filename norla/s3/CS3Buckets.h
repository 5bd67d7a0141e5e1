#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TArray.h"
#include "kx/text/String.h"
#include "norla/s3/CS3BucketOptions.h"
#include "norla/s3/CS3ListedBucket.h"

namespace norla {

class CNetRequest;
class CS3Client;
struct CS3Call;

/// The buckets of a store. Used by one thread at a time; every method blocks for its request.
///
/// Errors are those of CS3Client::performCall(): CS3Error when the store explained the failure, also behind the status
/// of a success, else CCURLError; kx::CError naming what makes no sense in an answer; kx::CInvalidArgError for an
/// empty bucket name. Afterwards the object is usable as before.
class KX_EXPORT CS3Buckets : public kx::CBase {
public:
    /// Whether a bucket keeps what is replaced and removed.
    enum class Versioning {
        Never,    ///< it never did
        Enabled,  ///< it does
        Suspended ///< it keeps what it has, and no more
    };

    /// @param client, request not null; the caller keeps both as long as methods are called. A client of an endpoint:
    /// one that was made with a key signs not all of these requests as stores want it.
    /// @throws kx::CInvalidArgError for null
    CS3Buckets(CS3Client* client, CNetRequest* request);
    CS3Buckets(const CS3Buckets&) = delete;
    CS3Buckets& operator=(const CS3Buckets&) = delete;
    ~CS3Buckets() override;

    /// Makes an empty bucket. One that exists is an error as a rule (code "BucketAlreadyOwnedByYou" or
    /// "BucketAlreadyExists"); some stores take it as made where it is the caller's.
    void create(const kx::String& bucketName, const CS3BucketOptions& options = {});

    /// Removes a bucket, which has to be empty (else code "BucketNotEmpty").
    void remove(const kx::String& bucketName);

    /// Whether there is such a bucket that may be listed. One of somebody else is an error (status 403).
    bool exists(const kx::String& bucketName);

    /// All buckets of the caller, in the store's order.
    /// @throws kx::CError also when there are more than a million, or the list goes on where it has been already
    kx::TArray<CS3ListedBucket> list();

    /// Where the bucket is, in the store's words; empty where the store says nothing, which with Amazon's means
    /// "us-east-1".
    kx::String getLocation(const kx::String& bucketName);

    Versioning getVersioning(const kx::String& bucketName);

    /// @param versioning Enabled or Suspended @throws kx::CInvalidArgError for Never: there is no way back
    void setVersioning(const kx::String& bucketName, Versioning versioning);

private:
    kx::String addBuckets(const kx::String& token, kx::TArray<CS3ListedBucket>& buckets);

    CS3Client* const m_client;
    CNetRequest* const m_request;
};

} // namespace norla
