#include "norla/s3/CS3ListObjectsResult.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"

#include <algorithm>

namespace norla {

CS3ListObjectsResult::CS3ListObjectsResult(const kx::TBuffer<unsigned char>* data)
{
    construct(reinterpret_cast<const char*>(data->getData()), data->getSize());
}

CS3ListObjectsResult::CS3ListObjectsResult(const char* data, int size)
{
    construct(data, static_cast<size_t>(std::max(size, 0)));
}

CS3ListObjectsResult::CS3ListObjectsResult(wxXmlNode* root)
{
    construct(root);
}

CS3ListObjectsResult::~CS3ListObjectsResult() = default;

void CS3ListObjectsResult::construct(const char* data, size_t size)
{
    construct(CS3Document(data, size, "'list objects' result").getRoot());
}

void CS3ListObjectsResult::construct(wxXmlNode* root)
{
    if (CS3Document::nameOf(*root) != L"ListBucketResult")
        throw kx::CError("Error parsing Amazon S3 'list objects' result: root element is not ListBucketResult.");
    CS3Document::forEachElement(*root, [this](wxXmlNode& element) {
        const std::wstring_view name = CS3Document::nameOf(element);
        if (name == L"Contents")
            m_contents.push_back(kx::newObj<CS3ListObjectsElement>(&element));
        else if (name == L"CommonPrefixes")
            parseCommonPrefixes(&element);
        else if (name == L"IsTruncated")
            parseTruncated(element);
        else if (name == L"NextMarker")
            m_nextMarker = CS3Document::textOf(element);
    });
}

void CS3ListObjectsResult::parseTruncated(const wxXmlNode& node)
{
    const kx::String text = CS3Document::textOf(node);
    const kx::String lower = text.toLower();
    if (lower != "true" && lower != "false")
        throw kx::CError("Bad value for 'IsTruncated' S3 list objects result element: '" + text + "'");
    m_truncated = lower == "true";
}

void CS3ListObjectsResult::parseCommonPrefixes(wxXmlNode* node)
{
    CS3Document::forEachElement(*node, [this](const wxXmlNode& element) {
        if (CS3Document::nameOf(element) == L"Prefix")
            m_commonPrefixes.push_back(CS3Document::textOf(element));
    });
}

} // namespace norla
