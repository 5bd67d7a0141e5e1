#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TBuffer.h"
#include "kx/text/String.h"
#include "norla/s3/CS3ErrorResponse.h"

class wxXmlNode;

namespace norla {

/// The answer to a copy: a "CopyObjectResult" document, or an "Error" document, which can come with the status of a
/// success because the service answers before it has finished. Immutable.
class KX_EXPORT CS3CopyObjectResult : public kx::CBase {
public:
    /// Parses the document.
    /// @param data not null, read during the call
    /// @throws kx::CError "Error parsing Amazon S3 'copy object' result: ..." when the bytes are neither document
    explicit CS3CopyObjectResult(const kx::TBuffer<unsigned char>* data);
    CS3CopyObjectResult(const char* data, int size);

    /// Reads either element. @param root not null
    explicit CS3CopyObjectResult(wxXmlNode* root);

    ~CS3CopyObjectResult() override;

    /// Null when the copy was made.
    kx::P<CS3ErrorResponse> getErrorResponse() const { return m_errorResponse; }

    /// Of the new object, as the service wrote them; empty when it did not.
    const kx::String& getLastModified() const noexcept { return m_lastModified; }
    const kx::String& getETag() const noexcept { return m_eTag; }

private:
    void construct(const char* data, size_t size);
    template <typename TElement, typename TSource>
    void construct(const TElement& root, const TSource& source);
    void readCopy(const auto& root);

    kx::P<CS3ErrorResponse> m_errorResponse;
    kx::String m_lastModified;
    kx::String m_eTag;
};

} // namespace norla
