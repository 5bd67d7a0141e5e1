#include "norla/mail/CMultiPartMimeMessage.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/random/CMTRand.h"
#include "kx/text/CStringFormat.h"

#include <string>

namespace norla {

namespace {

constexpr size_t minimumBoundary = 10;

kx::String makeBoundary()
{
    kx::String boundary;
    do {
        boundary += kx::CStringFormat("%llx", kx::rand64());
    } while (boundary.size() < minimumBoundary);
    return boundary;
}

} // namespace

CMultiPartMimeMessage::CMultiPartMimeMessage(const kx::String& subtype)
    : CMimeMessage(kx::String())
    , m_boundary(makeBoundary())
{
    getHeaders()["Content-Type"] = "multipart/" + subtype + "; boundary=" + m_boundary;
}

CMultiPartMimeMessage::~CMultiPartMimeMessage() = default;

void CMultiPartMimeMessage::setBody(const Buffer* /*body*/, const kx::String& /*transferEncoding*/)
{
    throw kx::CError("CMultiPartMimeMessage::setBody should not be used.");
}

// The line end before a boundary belongs to the boundary, not to the part (RFC 2046 section 5.1.1).
void CMultiPartMimeMessage::storeBody(kx::IOutStream& out) const
{
    const std::string delimiter = "--" + m_boundary.toLatin1();
    std::string before = delimiter + "\r\n";
    for (const kx::PC<CMimeMessage>& part : m_parts) {
        writeAll(out, before);
        part->store(out);
        before = "\r\n" + delimiter + "\r\n";
    }
    writeAll(out, "\r\n" + delimiter + "--\r\n");
}

void CMultiPartMimeMessage::addPart(const CMimeMessage* part)
{
    if (!part)
        throw kx::CInvalidArgError("part is null", "CMultiPartMimeMessage::addPart");
    m_parts.push_back(part);
}

} // namespace norla
