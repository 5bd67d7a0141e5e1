#include "norla/s3/CS3ErrorResponse.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"

#include <algorithm>
#include <utility>

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
    construct(CS3Document(data, static_cast<size_t>(std::max(size, 0)), "error response").getRoot());
}

CS3ErrorResponse::CS3ErrorResponse(wxXmlNode* root)
{
    construct(root);
}

CS3ErrorResponse::~CS3ErrorResponse() = default;

kx::P<CS3ErrorResponse> CS3ErrorResponse::createObjectNotFoundResponse(const kx::String& resource)
{
    return kx::newObj<CS3ErrorResponse>("NoSuchKey", "The resource you requested does not exist", resource, "#dummy#");
}

void CS3ErrorResponse::construct(wxXmlNode* root)
{
    if (!CS3Document::hasName(*root, L"Error"))
        throw kx::CError("Error parsing Amazon S3 error result: root element is not 'Error'.");
    CS3Document::forEachElement(*root, [this](const wxXmlNode& element) {
        if (kx::String* const field = fieldFor(element))
            *field = CS3Document::contentOf(element);
    });
}

kx::String* CS3ErrorResponse::fieldFor(const wxXmlNode& element)
{
    const std::pair<const wchar_t*, kx::String*> fields[]
        = {{L"Code", &m_code}, {L"Message", &m_message}, {L"Resource", &m_resource}, {L"RequestId", &m_requestId}};
    for (const auto& [name, field] : fields) {
        if (CS3Document::hasName(element, name))
            return field;
    }
    return nullptr;
}

} // namespace norla
