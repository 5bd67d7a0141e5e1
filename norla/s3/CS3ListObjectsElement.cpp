#include "norla/s3/CS3ListObjectsElement.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CWxElement.h"

namespace norla {

CS3ListObjectsElement::CS3ListObjectsElement(const wxXmlNode* contentsNode)
    : CS3ListObjectsElement(contentsNode, false)
{
}

CS3ListObjectsElement::CS3ListObjectsElement(const wxXmlNode* contentsNode, bool isURLEncoded)
{
    construct(CWxElement(*contentsNode), isURLEncoded);
}

CS3ListObjectsElement::CS3ListObjectsElement(const CXMLElement& contents, bool isURLEncoded)
{
    construct(contents, isURLEncoded);
}

CS3ListObjectsElement::~CS3ListObjectsElement() = default;

template <typename TElement>
void CS3ListObjectsElement::construct(const TElement& contents, bool isURLEncoded)
{
    contents.forEachElement([this, isURLEncoded](const TElement& element) {
        if (element.isNamed("Key"))
            m_key = CS3Document::nameIn(element, isURLEncoded);
        else if (element.isNamed("LastModified"))
            m_lastModified = element.getText();
        else if (element.isNamed("ETag"))
            m_eTag = element.getText();
        else if (element.isNamed("Size"))
            m_size = kx::parseInt64(element.getText(), false);
    });
    if (m_key.isEmpty())
        throw kx::CError("Invalid Amazon S3 list objects element: 'Key' field not defined.");
}

} // namespace norla
