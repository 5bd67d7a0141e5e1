#include "norla/s3/CS3ListObjectsElement.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3Document.h"

namespace norla {

CS3ListObjectsElement::CS3ListObjectsElement(const wxXmlNode* contentsNode)
    : CS3ListObjectsElement(contentsNode, false)
{
}

CS3ListObjectsElement::CS3ListObjectsElement(const wxXmlNode* contentsNode, bool isURLEncoded)
{
    CS3Document::forEachElement(*contentsNode, [this, isURLEncoded](const wxXmlNode& element) {
        const std::wstring_view name = CS3Document::nameOf(element);
        if (name == L"Key")
            m_key = CS3Document::nameIn(element, isURLEncoded);
        else if (name == L"LastModified")
            m_lastModified = CS3Document::textOf(element);
        else if (name == L"ETag")
            m_eTag = CS3Document::textOf(element);
        else if (name == L"Size")
            m_size = kx::parseInt64(CS3Document::contentOf(element), false);
    });
    if (m_key.isEmpty())
        throw kx::CError("Invalid Amazon S3 list objects element: 'Key' field not defined.");
}

CS3ListObjectsElement::~CS3ListObjectsElement() = default;

} // namespace norla
