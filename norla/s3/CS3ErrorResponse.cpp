#include "norla/s3/CS3ErrorResponse.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CWxElement.h"

#include <algorithm>

namespace norla {

CS3ErrorResponse::CS3ErrorResponse(
    const kx::String& code, const kx::String& message, const kx::String& resource, const kx::String& requestId)
    : m_code(code)
    , m_message(message)
    , m_resource(resource)
    , m_requestId(requestId)
{
}

CS3ErrorResponse::CS3ErrorResponse(const char* data, int size)
{
    construct(CS3Document({data, static_cast<size_t>(std::max(size, 0))}, "error response").getRoot());
}

CS3ErrorResponse::CS3ErrorResponse(wxXmlNode* root)
{
    construct(CWxElement(*root));
}

CS3ErrorResponse::CS3ErrorResponse(const CXMLElement& root)
{
    construct(root);
}

CS3ErrorResponse::~CS3ErrorResponse() = default;

kx::P<CS3ErrorResponse> CS3ErrorResponse::createObjectNotFoundResponse(const kx::String& resource)
{
    return kx::newObj<CS3ErrorResponse>("NoSuchKey", "The resource you requested does not exist", resource, "#dummy#");
}

void CS3ErrorResponse::complete(const kx::String& requestId, const kx::String& hostId)
{
    if (m_requestId.isEmpty())
        m_requestId = requestId;
    if (m_hostId.isEmpty())
        m_hostId = hostId;
}

void CS3ErrorResponse::completeResource(const kx::String& resource)
{
    if (m_resource.isEmpty())
        m_resource = resource;
}

template <typename TElement>
void CS3ErrorResponse::construct(const TElement& root)
{
    if (!root.isNamed("Error"))
        throw kx::CError("Error parsing Amazon S3 error result: root element is not 'Error'.");
    root.forEachElement([this](const auto& element) {
        if (kx::String* const field = this->fieldFor(element))
            *field = element.getText();
    });
}

kx::String* CS3ErrorResponse::fieldFor(const auto& element)
{
    if (element.isNamed("Code"))
        return &m_code;
    if (element.isNamed("Message"))
        return &m_message;
    if (element.isNamed("Resource"))
        return &m_resource;
    if (element.isNamed("RequestId"))
        return &m_requestId;
    if (element.isNamed("HostId"))
        return &m_hostId;
    if (element.isNamed("Region"))
        return &m_region;
    return nullptr;
}

} // namespace norla
