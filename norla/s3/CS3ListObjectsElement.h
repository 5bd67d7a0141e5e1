#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"

class wxXmlNode;

namespace norla {

class CXMLElement;

/// One object of a listing. Immutable.
class KX_EXPORT CS3ListObjectsElement : public kx::CBase {
public:
    /// Reads a "Contents" element. @param contentsNode not null
    /// @throws kx::CError "Invalid Amazon S3 list objects element: 'Key' field not defined." without a key or with an
    /// empty one; as kx::parseInt64() for a size that is no number
    explicit CS3ListObjectsElement(const wxXmlNode* contentsNode);

    /// The same with the key decoded where it is percent-encoded.
    /// @throws also kx::CError "The name '...' in an Amazon S3 listing is not UTF-8."
    CS3ListObjectsElement(const wxXmlNode* contentsNode, bool isURLEncoded);

    /// For listings that come as bytes. @throws as above
    CS3ListObjectsElement(const CXMLElement& contents, bool isURLEncoded);
    ~CS3ListObjectsElement() override;

    /// The object's name, never empty.
    const kx::String& getKey() const noexcept { return m_key; }

    /// As the service wrote it ("2026-11-21T08:49:37.000Z"); empty when it did not.
    const kx::String& getLastModified() const noexcept { return m_lastModified; }

    /// As the service wrote it, with its quotation marks; empty when it did not.
    const kx::String& getETag() const noexcept { return m_eTag; }

    /// In bytes; -1 when the service did not say.
    long long getSize() const noexcept { return m_size; }

private:
    template <typename TElement>
    void construct(const TElement& contents, bool isURLEncoded);

    kx::String m_key;
    kx::String m_lastModified;
    kx::String m_eTag;
    long long m_size = -1;
};

} // namespace norla
