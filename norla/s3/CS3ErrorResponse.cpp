#include "norla/s3/CS3ErrorResponse.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"

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
    if (CS3Document::nameOf(*root) != L"Error")
        throw kx::CError("Error parsing Amazon S3 error result: root element is not 'Error'.");
    CS3Document::forEachElement(*root, [this](const wxXmlNode& element) {
        if (kx::String* const field = fieldFor(CS3Document::nameOf(element)))
            *field = CS3Document::textOf(element);
    });
}

kx::String* CS3ErrorResponse::fieldFor(std::wstring_view name)
{
    if (name == L"Code")
        return &m_code;
    if (name == L"Message")
        return &m_message;
    if (name == L"Resource")
        return &m_resource;
    if (name == L"RequestId")
        return &m_requestId;
    return nullptr;
}

} // namespace norla
