#include "norla/s3/CS3Document.h"

#include "kx/base/CError.h"
#include "norla/http/util.h"

#include <utility>

namespace norla {

namespace {

CXMLTree parsed(std::string_view bytes, const kx::String& title, size_t limit)
{
    std::optional<CXMLTree> tree = CS3Document::parse(bytes, title, limit);
    if (!tree)
        throw kx::CError("Error parsing Amazon S3 " + title + ": invalid XML.");
    CS3Document::requireRoot(*tree, title);
    return std::move(*tree);
}

} // namespace

CS3Document::CS3Document(std::string_view bytes, const kx::String& title, size_t limit)
    : m_tree(parsed(bytes, title, limit))
{
}

std::optional<CXMLTree> CS3Document::parse(std::string_view bytes, const kx::String& title, size_t limit)
{
    try {
        return CXMLTree::parse(bytes, limit);
    } catch (const kx::CError& error) {
        throw kx::CError("Error parsing Amazon S3 " + title + ": " + error.getMessage() + ".");
    }
}

void CS3Document::requireRoot(const CXMLTree& tree, const kx::String& title)
{
    if (!tree.hasRoot())
        throw kx::CError("Error parsing Amazon S3 " + title + ": no root element.");
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
