#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"

class wxXmlNode;

namespace norla {

class CXMLElement;

/// What the service says about a failed request: its "Error" document.
class KX_EXPORT CS3ErrorResponse : public kx::CBase {
public:
    CS3ErrorResponse(
        const kx::String& code, const kx::String& message, const kx::String& resource, const kx::String& requestId);

    /// Parses the document.
    /// @param size in bytes; 0 is no document
    /// @throws kx::CError "Error parsing Amazon S3 error response: invalid XML."; or as below
    CS3ErrorResponse(const char* data, int size);

    /// Reads an "Error" element. @param root not null
    /// @throws kx::CError "Error parsing Amazon S3 error result: root element is not 'Error'."
    explicit CS3ErrorResponse(wxXmlNode* root);

    ~CS3ErrorResponse() override;

    /// What the service answers for an object that is not there. Its request id is "#dummy#", which no real answer has.
    static kx::P<CS3ErrorResponse> createObjectNotFoundResponse(const kx::String& resource);

    /// The service's own code, such as "NoSuchKey". This and the others are empty when the document does not have them.
    const kx::String& getCode() const noexcept { return m_code; }
    const kx::String& getMessage() const noexcept { return m_message; }

    /// The bucket or object, as a path.
    const kx::String& getResource() const noexcept { return m_resource; }

    /// Names the request for the service's operators.
    const kx::String& getRequestId() const noexcept { return m_requestId; }

    /// The same for those of the part of the service that has answered.
    const kx::String& getHostId() const noexcept { return m_hostId; }

    /// Where the bucket is, for a request that was signed for another region.
    const kx::String& getRegion() const noexcept { return m_region; }

    /// Fills in what the document left out. @param requestId, hostId of the answer's header
    void complete(const kx::String& requestId, const kx::String& hostId);

    /// The same. @param resource as a path; empty: none is known
    void completeResource(const kx::String& resource);

    /// For the answers that this one is a part of. @throws as above
    explicit CS3ErrorResponse(const CXMLElement& root);

private:
    template <typename TElement>
    void construct(const TElement& root);
    kx::String* fieldFor(const auto& element);

    kx::String m_code;
    kx::String m_message;
    kx::String m_resource;
    kx::String m_requestId;
    kx::String m_hostId;
    kx::String m_region;
};

} // namespace norla
