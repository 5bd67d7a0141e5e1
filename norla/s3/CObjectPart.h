#pragma once

#include "kx/text/String.h"

namespace norla {

class CNetRequest;

/// The part of an object that is asked for, as CS3Client::prepareGetObjectRequest() takes it.
class CObjectPart {
public:
    /// @throws kx::CInvalidArgError in the name of the function for a part that cannot be
    CObjectPart(long long start, long long length, const kx::String& functionName);

    /// Whether the object's headers are asked for, and nothing of it.
    bool isNothing() const noexcept { return m_length == 0; }

    bool isWhole() const noexcept { return m_start == 0 && m_length == -1; }

    /// "bytes=3-4" or "bytes=3-", the value of a Range header (RFC 9110 section 14.2).
    kx::String toRange() const;

    /// Whether the answer that the request got, a success, is this part: status 206 with a Content-Range that says so,
    /// or the whole object where it is no larger than what was asked for.
    bool isAnswerOf(CNetRequest& request) const;

private:
    bool isContentRange(const kx::String& header, long long received) const;

    const long long m_start;
    const long long m_length;
};

} // namespace norla
