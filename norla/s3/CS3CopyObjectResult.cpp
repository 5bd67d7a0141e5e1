#include "norla/s3/CS3CopyObjectResult.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"

#include <algorithm>

namespace norla {

CS3CopyObjectResult::CS3CopyObjectResult(const kx::TBuffer<unsigned char>* data)
{
    construct(reinterpret_cast<const char*>(data->getData()), data->getSize());
}

CS3CopyObjectResult::CS3CopyObjectResult(const char* data, int size)
{
    construct(data, static_cast<size_t>(std::max(size, 0)));
}

CS3CopyObjectResult::CS3CopyObjectResult(wxXmlNode* root)
{
    construct(root);
}

CS3CopyObjectResult::~CS3CopyObjectResult() = default;

void CS3CopyObjectResult::construct(const char* data, size_t size)
{
    construct(CS3Document(data, size, "'copy object' result").getRoot());
}

void CS3CopyObjectResult::construct(wxXmlNode* root)
{
    const std::wstring_view name = CS3Document::nameOf(*root);
    if (name == L"Error")
        m_errorResponse = kx::newObj<CS3ErrorResponse>(root);
    else if (name == L"CopyObjectResult")
        readCopy(*root);
    else
        throw kx::CError("Error parsing Amazon S3 'copy object' result: unknown root element '"
            + kx::String(std::wstring(name)) + "'.");
}

void CS3CopyObjectResult::readCopy(const wxXmlNode& root)
{
    CS3Document::forEachElement(root, [this](const wxXmlNode& element) {
        if (CS3Document::nameOf(element) == L"LastModified")
            m_lastModified = CS3Document::textOf(element);
        else if (CS3Document::nameOf(element) == L"ETag")
            m_eTag = CS3Document::textOf(element);
    });
}

} // namespace norla
