#include "norla/s3/CS3Document.h"

#include "kx/base/CError.h"
#include "norla/http/util.h"
#include "norla/s3/quietXML.h"

#include <wx/mstream.h>
#include <wx/xml/xml.h>

#include <type_traits>
#include <utility>

namespace norla {

// So that a view of it stays valid: wxWidgets gives a reference to its text, not a copy.
static_assert(std::is_reference_v<decltype(std::declval<const wxString&>().ToStdWstring())>);

namespace {

std::unique_ptr<wxXmlDocument> loaded(const char* data, size_t size)
{
    auto document = std::make_unique<wxXmlDocument>();
    wxMemoryInputStream bytes(data, size);
    if (!loadQuietly(*document, bytes))
        return nullptr;
    return document;
}

wxXmlNode* elementFrom(wxXmlNode* node)
{
    while (node && node->GetType() != wxXML_ELEMENT_NODE)
        node = node->GetNext();
    return node;
}

} // namespace

CS3Document::CS3Document(const char* data, size_t size, const kx::String& title)
    : m_document(loaded(data, size))
{
    if (!m_document)
        throw kx::CError("Error parsing Amazon S3 " + title + ": invalid XML.");
    m_root = requireRoot(*m_document, title);
}

CS3Document::~CS3Document() = default;

wxXmlNode* CS3Document::getRoot() const noexcept
{
    return m_root;
}

wxXmlNode* CS3Document::requireRoot(const wxXmlDocument& document, const kx::String& title)
{
    wxXmlNode* const root = document.GetRoot();
    if (!root)
        throw kx::CError("Error parsing Amazon S3 " + title + ": no root element.");
    return root;
}

wxXmlNode* CS3Document::firstElement(const wxXmlNode& parent)
{
    return elementFrom(parent.GetChildren());
}

wxXmlNode* CS3Document::nextElement(const wxXmlNode& sibling)
{
    return elementFrom(sibling.GetNext());
}

std::wstring_view CS3Document::nameOf(const wxXmlNode& node)
{
    return node.GetName().ToStdWstring();
}

// As wxXmlNode::GetNodeContent(), without its copy.
std::wstring_view CS3Document::contentOf(const wxXmlNode& node)
{
    for (const wxXmlNode* child = node.GetChildren(); child; child = child->GetNext()) {
        if (child->GetType() == wxXML_TEXT_NODE || child->GetType() == wxXML_CDATA_SECTION_NODE)
            return child->GetContent().ToStdWstring();
    }
    return {};
}

kx::String CS3Document::decodedName(const kx::String& text)
{
    // Stores write a blank either way, and always "%2B" for a plus sign.
    constexpr bool plusAsSpace = true;
    kx::String name = urlUnescape(text, plusAsSpace);
    if (name.isEmpty() && !text.isEmpty())
        throw kx::CError("The name '" + text + "' in an Amazon S3 listing is not UTF-8.");
    return name;
}

} // namespace norla
