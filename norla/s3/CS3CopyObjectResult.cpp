#include "norla/s3/CS3CopyObjectResult.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CWxElement.h"

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
    construct(CWxElement(*root), root);
}

CS3CopyObjectResult::~CS3CopyObjectResult() = default;

void CS3CopyObjectResult::construct(const char* data, size_t size)
{
    const CS3Document document({data, size}, "'copy object' result");
    construct(document.getRoot(), document.getRoot());
}

template <typename TElement, typename TSource>
void CS3CopyObjectResult::construct(const TElement& root, const TSource& source)
{
    if (root.isNamed("Error"))
        m_errorResponse = kx::newObj<CS3ErrorResponse>(source);
    else if (root.isNamed("CopyObjectResult"))
        readCopy(root);
    else
        throw kx::CError(
            "Error parsing Amazon S3 'copy object' result: unknown root element '" + root.getName() + "'.");
}

void CS3CopyObjectResult::readCopy(const auto& root)
{
    root.forEachElement([this](const auto& element) {
        if (element.isNamed("LastModified"))
            m_lastModified = element.getText();
        else if (element.isNamed("ETag"))
            m_eTag = element.getText();
    });
}

} // namespace norla
