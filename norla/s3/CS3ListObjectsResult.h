#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TBuffer.h"
#include "kx/text/String.h"
#include "norla/s3/CS3ListObjectsElement.h"

class wxXmlNode;

namespace norla {

/// One page of a bucket's listing: the "ListBucketResult" document. Immutable.
class KX_EXPORT CS3ListObjectsResult : public kx::CBase {
public:
    /// How the names in the document (keys, common prefixes, the next marker) are to be read.
    enum class Names {
        AsTheyStand,
        AsTheDocumentSays, ///< percent-decoded, with "+" for a blank, where the element EncodingType says "url"
    };

    /// Parses the document.
    /// @param data not null, read during the call
    /// @throws kx::CError "Error parsing Amazon S3 'list objects' result: ..." when the bytes are no such document,
    /// "Bad value for 'IsTruncated' ...", or as CS3ListObjectsElement
    explicit CS3ListObjectsResult(const kx::TBuffer<unsigned char>* data);
    CS3ListObjectsResult(const char* data, int size);

    /// The same, with names to be decoded.
    /// @throws also kx::CError "The name '...' in an Amazon S3 listing is not UTF-8."
    CS3ListObjectsResult(const kx::TBuffer<unsigned char>* data, Names names);

    /// Reads a "ListBucketResult" element. @param root not null
    explicit CS3ListObjectsResult(wxXmlNode* root);

    ~CS3ListObjectsResult() override;

    /// Whether the listing goes on after this page.
    bool isTruncated() const noexcept { return m_truncated; }

    /// The objects in the service's order (by key).
    const kx::TArray<kx::P<CS3ListObjectsElement>>& getContents() const noexcept { return m_contents; }

    /// What stands for the objects whose names go on behind the delimiter, such as "photos/".
    const kx::TArray<kx::String>& getCommonPrefixes() const noexcept { return m_commonPrefixes; }

    /// Where the next page begins; empty when the service did not say, as many do without a delimiter.
    const kx::String& getNextMarker() const noexcept { return m_nextMarker; }

private:
    void construct(const char* data, size_t size, Names names);
    template <typename TElement>
    void construct(const TElement& root, Names names);
    void decodeNextMarker();
    void parseTruncated(const kx::String& text);
    void parseCommonPrefixes(const auto& prefixes, bool isURLEncoded);

    bool m_truncated = false;
    kx::TArray<kx::P<CS3ListObjectsElement>> m_contents;
    kx::TArray<kx::String> m_commonPrefixes;
    kx::String m_nextMarker;
};

} // namespace norla
