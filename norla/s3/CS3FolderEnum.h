#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"
#include "norla/s3/CS3FolderEntry.h"
#include "norla/s3/CS3ListOptions.h"

#include <memory>

namespace norla {

class CNetRequest;
class CS3Client;
template <typename TItem>
class TS3ListCursor;

/// Walks one level of a bucket as if it had folders: the objects whose names go on behind the prefix without a
/// delimiter, and what sums up the others, in the order of their names (by code point), each of them once.
/// The contents of a folder are walked by another one, with the folder's key as prefix. An object of that very name, by
/// which some programs mark a folder, is among them.
///
/// Pages are compared with what was asked for, so that a store that ignores it, or goes in a circle, is told. Names are
/// asked for percent-encoded: they may hold any character. Used by one thread at a time.
class KX_EXPORT CS3FolderEnum : public kx::CBase {
public:
    /// Fetches nothing yet.
    /// @param client, request not null, used for every page; the caller keeps both as long as next() is called
    /// @param options whose prefix is "" for the uppermost level, else "photos/" rather than "photos"
    /// @param delimiter not empty
    /// @throws kx::CInvalidArgError for null, an empty bucket name and maxKeys that are neither -1 nor positive; for
    /// an empty delimiter
    CS3FolderEnum(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
        const CS3ListOptions& options = {}, const kx::String& delimiter = "/");
    CS3FolderEnum(const CS3FolderEnum&) = delete;
    CS3FolderEnum& operator=(const CS3FolderEnum&) = delete;
    ~CS3FolderEnum() override;

    /// Goes on to the next entry, the first one at first. May block for requests of pages.
    /// @return false when there is none, and from then on
    /// @throws CS3Error, CCURLError as CS3Client::performCall(); kx::CError naming the bucket and what of the page
    /// makes no sense, was not asked for or has been there already. Nothing of such a page is given; calling it again
    /// asks for the same page again.
    bool next();

    /// Null before the first next(), after one that threw, and when there is none any more; valid until the next one.
    const CS3FolderEntry* getCurrent() const noexcept;

private:
    const std::unique_ptr<TS3ListCursor<CS3FolderEntry>> m_cursor;
    kx::String m_last; // the greatest name that has come
    bool m_lastIsFolder = false;
};

} // namespace norla
