#pragma once

#include "kx/text/String.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CS3ListKind.h"
#include "norla/s3/CS3ListOptions.h"
#include "norla/s3/CS3SeenMarks.h"

#include <string>
#include <string_view>

namespace norla {

class CNetRequest;
class CS3Client;
struct CS3Call;

/// The pages of one of a bucket's lists, one after the other, each compared with what was asked for, and with those
/// before it: no list has the same objects on two pages. A page that was refused, or did not come, is asked for again.
class CS3ListPages {
public:
    /// @param delimiter names that hold it behind the prefix are summed up; empty for none
    /// @throws kx::CInvalidArgError for null, an empty bucket name and maxKeys that are neither -1 nor positive;
    /// kx::CError for a text without a UTF-8 form
    CS3ListPages(CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options,
        const kx::String& delimiter, const CS3ListKind& kind);

    const CS3ListOptions& getOptions() const noexcept { return m_options; }

    /// Whether the last page has come.
    bool isOver() const noexcept { return m_isOver; }

    /// Fetches the next page, calls read(element) for every element of its root and then finish().
    /// @throws as performForDocument(); kx::CError naming the bucket and what makes no sense in the page or was not
    /// asked for; what read() and finish() throw
    template <typename TRead, typename TFinish>
    void fetch(TRead read, TFinish finish)
    {
        const CS3Document document = receive();
        document.getRoot().forEachElement(read);
        finish();
        advance(document.getRoot());
    }

    template <typename TRead>
    void fetch(TRead read)
    {
        fetch(read, [] {});
    }

    // For read().

    /// The text in an element of this page, as the store wrote it.
    kx::String textIn(const CXMLElement& element) const;

    /// The name in an element of this page. @throws kx::CError when it is not UTF-8
    kx::String nameIn(const CXMLElement& element) const;

    /// @throws kx::CError when the text is no size
    long long sizeIn(const kx::String& text) const;

    /// Takes note of an object's name, once for each. @throws kx::CError when it was not asked for
    /// @param id of the version or upload, where a name may be there more than once
    void acceptKey(const kx::String& key, const kx::String& id = {});

    /// The same of what sums up several. @throws as above
    void acceptFolder(const kx::String& folder);

    /// A name for an error: stores have no bound for what they list.
    static kx::String shown(const kx::String& name);

    /// @throws kx::CError "The listing of the bucket '...' " + what + "."
    [[noreturn]] void fail(const kx::String& what) const;

private:
    CS3Call makeCall() const;
    CS3Document receive();
    CS3Document receiveOnce();
    kx::String decoded(const kx::String& text) const;
    kx::String textOfChild(const CXMLElement& parent, std::string_view name) const;
    void accept(const kx::String& name);
    void advance(const CXMLElement& root);
    bool readTruncated(const CXMLElement& root) const;
    kx::String markerIn(const CXMLElement& root, const CS3ListKind::CMarker& marker) const;
    static std::string markOf(const kx::String& first, const kx::String& second);
    [[noreturn]] void failAt(const kx::String& name, const kx::String& why) const;

    CS3Client* const m_client;
    CNetRequest* const m_request;
    const kx::String m_bucketName;
    const CS3ListOptions m_options;
    const kx::String m_delimiter;
    const CS3ListKind& m_kind;
    kx::String m_first; // markers of the next page; empty before the first page
    kx::String m_second;
    CS3SeenMarks m_usedMarkers; // digests of those of the pages that have come
    CS3SeenMarks m_seenKeys;    // digests of those of the pages that have come
    bool m_isOver = false;
    bool m_asksForEncodedNames = true;

    // Of the page that is being read.
    bool m_isURLEncoded = false; // by the store, which says so
    bool m_isEscaped = false;    // by us
    bool m_isAmbiguous = false;  // whether it matters if names are encoded
    kx::String m_lastName;
    std::string m_keys; // one behind the other
};

} // namespace norla
