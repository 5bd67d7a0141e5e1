#pragma once

#include "kx/text/String.h"
#include "norla/s3/CXMLTree.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace norla {

/// An XML document that the service sent.
class CS3Document {
public:
    /// For documents that are no longer than 16 MiB: a page of 10,000 objects with all that is known of them has half
    /// as many, and as many take about as much memory as the bytes.
    static constexpr size_t mostElements = 300'000;

    /// @param title what messages call the document, such as "error response"
    /// @throws kx::CError "Error parsing Amazon S3 " + title + ": invalid XML.", "...: no root element." or "...: more
    /// than ... elements."
    CS3Document(std::string_view bytes, const kx::String& title, size_t limit = CXMLTree::unlimited);

    /// Valid as long as the document.
    CXMLElement getRoot() const noexcept { return m_tree.getRoot(); }

    /// The tree alone. @return nothing for what is no XML that CXMLTree takes
    /// @throws kx::CError "...: more than ... elements."
    static std::optional<CXMLTree> parse(std::string_view bytes, const kx::String& title, size_t limit);

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
