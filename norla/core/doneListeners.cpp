#include "norla/core/doneListeners.h"

#include "kx/base/CStdExceptionError.h"
#include "kx/log/log.h"

namespace norla {

void tellDone(CNetRequest& request, CNetRequest::IDoneListener* listener, const kx::CError* error)
{
    const kx::P<CNetRequest::IDoneListener> kept(listener);
    if (kept)
        kept->onNetRequestDone(&request, error);
}

void tellDoneAfterFailure(
    CNetRequest& request, CNetRequest::IDoneListener* listener, const std::exception& error) noexcept
{
    try {
        const auto* const known = dynamic_cast<const kx::CError*>(&error);
        tellDone(request, listener, known ? known : kx::CStdExceptionError::exceptionToError(error).get());
    } catch (const std::exception& listenerError) {
        kx::logErrorQuietly(listenerError, "A done listener has thrown after a failed transfer (ignored).");
    }
}

} // namespace norla
