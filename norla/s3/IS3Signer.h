#pragma once

#include "kx/base/IBase.h"
#include "kx/time/CTimeSpan.h"
#include "norla/s3/CS3Credentials.h"
#include "norla/s3/CS3RequestToSign.h"

#include <string>
#include <vector>

namespace norla {

/// A way to prove to an S3 store who asks. An object may serve several clients, each of them in any thread.
class KX_EXPORT IS3Signer : public virtual kx::IBase {
public:
    /// Adds the headers that prove it. What is signed may not change afterwards: the method, the URL and the headers
    /// but for those that libcurl sets by itself.
    /// @throws kx::CInvalidArgError for what no request may hold, such as a header with a line end; the request is as
    /// it was then
    virtual void sign(CS3RequestToSign& request, const CS3Credentials& credentials) = 0;

    /// The lower-case names of the headers that sign() may add: who signs a request again leaves them out.
    [[nodiscard]] virtual std::vector<std::string> getHeaderNames() const = 0;

    /// A URL that proves it by itself, so that whoever has it may do that one thing.
    /// @param request its headers have to be sent with the URL, just so; its body is anybody's
    /// @param lifetime from the request's time on; whole seconds, 1 at least
    /// @return the URL with what proves it in its query
    /// @throws kx::CInvalidArgError as sign(), and for a lifetime that the store will not take
    [[nodiscard]] virtual std::string presign(
        const CS3RequestToSign& request, const CS3Credentials& credentials, kx::CTimeSpan lifetime)
        = 0;
};

} // namespace norla
