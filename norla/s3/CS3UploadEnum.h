#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"
#include "norla/s3/CS3ListOptions.h"
#include "norla/s3/CS3ListedUpload.h"

#include <memory>

namespace norla {

class CNetRequest;
class CS3Client;
template <typename TItem>
class TS3ListCursor;

/// Walks the uploads by parts that were begun in a bucket and not ended ("ListMultipartUploads"), for whoever wants to
/// resume them, or to abort what nobody will: their parts take room until then.
///
/// Pages are compared with what was asked for, so that a store that ignores it, or goes in a circle, is told. Names are
/// asked for percent-encoded: they may hold any character. Used by one thread at a time.
class KX_EXPORT CS3UploadEnum : public kx::CBase {
public:
    /// Fetches nothing yet.
    /// @param client, request not null, used for every page; the caller keeps both as long as next() is called
    /// @throws kx::CInvalidArgError for null, an empty bucket name and maxKeys that are neither -1 nor positive
    CS3UploadEnum(
        CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options = {});
    CS3UploadEnum(const CS3UploadEnum&) = delete;
    CS3UploadEnum& operator=(const CS3UploadEnum&) = delete;
    ~CS3UploadEnum() override;

    /// Goes on to the next upload, the first one at first. May block for requests of pages.
    /// @return false when there is none, and from then on
    /// @throws CS3Error, CCURLError as CS3Client::performCall(); kx::CError naming the bucket and what of the page
    /// makes no sense, was not asked for or has been there already. Nothing of such a page is given; calling it again
    /// asks for the same page again.
    bool next();

    /// Null before the first next(), after one that threw, and when there is none any more; valid until the next one.
    const CS3ListedUpload* getCurrent() const noexcept;

private:
    const std::unique_ptr<TS3ListCursor<CS3ListedUpload>> m_cursor;
};

} // namespace norla
