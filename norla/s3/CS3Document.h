#pragma once

#include "kx/text/String.h"
#include "norla/s3/CXMLTree.h"

#include <string_view>

namespace norla {

/// An XML document that the service sent.
class CS3Document {
public:
    /// @param title what messages call the document, such as "error response"
    /// @throws kx::CError "Error parsing Amazon S3 " + title + ": invalid XML." or "...: no root element."
    CS3Document(std::string_view bytes, const kx::String& title);

    /// Valid as long as the document.
    CXMLElement getRoot() const noexcept { return m_tree.getRoot(); }

    /// @throws kx::CError as above when the tree has none
    static void requireRoot(const CXMLTree& tree, const kx::String& title);

    /// The name in a listing that percent-encodes its names.
    /// @throws kx::CError "The name '...' in an Amazon S3 listing is not UTF-8."
    static kx::String decodedName(const kx::String& text);

    /// The name in an element of a listing, decoded if need be. @throws as decodedName()
    static kx::String nameIn(const auto& element, bool isURLEncoded)
    {
        return isURLEncoded ? decodedName(element.getText()) : element.getText();
    }

private:
    const CXMLTree m_tree;
};

} // namespace norla
