#pragma once

#include "kx/text/String.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

class wxXmlDocument;
class wxXmlNode;

namespace norla {

/// An XML document that the service sent.
class CS3Document {
public:
    /// Loads it, as loadQuietly() does.
    /// @param title what messages call the document, such as "error response"
    /// @throws kx::CError "Error parsing Amazon S3 " + title + ": invalid XML." or "...: no root element."
    CS3Document(const char* data, size_t size, const kx::String& title);
    CS3Document(const CS3Document&) = delete;
    CS3Document& operator=(const CS3Document&) = delete;
    ~CS3Document();

    /// Owned by the document, never null.
    wxXmlNode* getRoot() const noexcept;

    /// The root of a document. @throws kx::CError as above when it has none
    static wxXmlNode* requireRoot(const wxXmlDocument& document, const kx::String& title);

    /// Calls action(wxXmlNode&) for every element among the node's children, in document order.
    template <typename TAction>
    static void forEachElement(const wxXmlNode& parent, TAction action)
    {
        for (wxXmlNode* element = firstElement(parent); element; element = nextElement(*element))
            action(*element);
    }

    /// Valid as long as the document; so is what contentOf() gives.
    static std::wstring_view nameOf(const wxXmlNode& node);

    /// The first piece of text in the node, as it stands; empty when there is none.
    static std::wstring_view contentOf(const wxXmlNode& node);

    /// The same as a text of its own.
    static kx::String textOf(const wxXmlNode& node) { return kx::String(std::wstring(contentOf(node))); }

    /// The name in a listing that percent-encodes its names.
    /// @throws kx::CError "The name '...' in an Amazon S3 listing is not UTF-8."
    static kx::String decodedName(const kx::String& text);

    /// The name in an element of a listing, decoded if need be. @throws as decodedName()
    static kx::String nameIn(const wxXmlNode& node, bool isURLEncoded)
    {
        return isURLEncoded ? decodedName(textOf(node)) : textOf(node);
    }

private:
    static wxXmlNode* firstElement(const wxXmlNode& parent);
    static wxXmlNode* nextElement(const wxXmlNode& sibling);

    std::unique_ptr<wxXmlDocument> m_document;
    wxXmlNode* m_root;
};

} // namespace norla
