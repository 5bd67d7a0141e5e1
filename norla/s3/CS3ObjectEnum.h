#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/s3/CS3ListObjectsElement.h"

#include <memory>

namespace norla {

class CNetRequest;
class CS3Client;
class CS3ListObjectsResult;
class CS3SeenMarks;

/// Walks the objects of a bucket, fetching page after page of its listing as they are needed:
/// `while (objects->next()) show(objects->getCurrObject()->getKey());`
/// What the store lists is given as it comes, names outside the prefix, too: CS3ObjectListing compares it with what was
/// asked for. Used by one thread at a time.
class KX_EXPORT CS3ObjectEnum : public kx::CBase {
public:
    /// Fetches nothing yet.
    /// @param client, request used for every page; the caller keeps both as long as next() is called
    /// @param prefix of the names of the objects wanted; empty for all
    /// @param startMarker only names behind this one, which need not exist; empty for all
    /// @param maxKeys objects a page; -1 lets the service choose (1,000 as a rule)
    CS3ObjectEnum(CS3Client* client, CNetRequest* request, const kx::String& bucketName, const kx::String& prefix,
        const kx::String& startMarker, int maxKeys);
    CS3ObjectEnum(const CS3ObjectEnum&) = delete;
    CS3ObjectEnum& operator=(const CS3ObjectEnum&) = delete;
    ~CS3ObjectEnum() override;

    /// Goes on to the next object, the first one at first. May block for the request of a page.
    /// @return false when there is none, and from then on
    /// @throws as CS3Client::listObjects(); calling it again tries the same page again
    /// @throws kx::CError "The listing of the bucket '...' does not end: it came to the marker '...' again.", and from
    /// then on, when the service says that the listing goes on where it has been already
    bool next();

    /// Goes on to the first object of the next page, leaving out what is left of this one. Otherwise as next().
    bool nextPage();

    /// Null before the first next() and when there is none any more.
    kx::P<CS3ListObjectsElement> getCurrObject() const;

private:
    CS3Client* const m_client;
    CNetRequest* const m_request;
    const kx::String m_bucketName;
    const kx::String m_prefix;
    const int m_maxKeys;
    kx::P<CS3ListObjectsResult> m_currPage; // null before the first
    int m_index = 0;
    kx::String m_marker;
    const std::unique_ptr<CS3SeenMarks> m_usedMarkers; // of the pages that have come, as digests
    bool m_finished = false;
};

} // namespace norla
