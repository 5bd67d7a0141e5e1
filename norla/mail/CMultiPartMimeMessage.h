#pragma once

#include "kx/containers/TArray.h"
#include "norla/mail/CMimeMessage.h"

namespace norla {

/// A message whose body is made of other messages, one after the other, with a random boundary between them. Threads as
/// for CMimeMessage; a part is finished when the message is.
class KX_EXPORT CMultiPartMimeMessage : public CMimeMessage {
public:
    /// A message without parts.
    /// @param subtype what follows "multipart/" in the content type, such as "mixed" or "alternative"
    explicit CMultiPartMimeMessage(const kx::String& subtype);
    ~CMultiPartMimeMessage() override;

    /// @throws kx::CError always: the body is made of the parts
    void setBody(const Buffer* body, const kx::String& transferEncoding) override;

    /// Writes the parts, each behind its boundary line, and the closing boundary line. Parts are not searched for the
    /// boundary, which is random.
    /// @throws as store() of the parts
    void storeBody(kx::IOutStream& out) const override;

    /// Adds a part behind the others. It is shared, not copied, and stored as it is then; it must not hold this
    /// message.
    /// @throws kx::CInvalidArgError for null
    void addPart(const CMimeMessage* part);

    /// At least ten lower-case hexadecimal digits, usually sixteen, without the leading "--".
    kx::String getBoundary() const { return m_boundary; }

private:
    kx::TArray<kx::PC<CMimeMessage>> m_parts;
    kx::String m_boundary;
};

} // namespace norla
