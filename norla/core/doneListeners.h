#pragma once

#include "norla/core/CNetRequest.h"

#include <exception>

namespace norla {

/// Tells the end of a transfer. The listener may reset the request, and with it drop the request's reference to the
/// listener.
/// @param listener null when nobody is to be told
/// @param error null on success
/// @throws what the listener throws
void tellDone(CNetRequest& request, CNetRequest::IDoneListener* listener, const kx::CError* error);

/// The same for a failure whose error is the one that the caller must get: what the listener throws is logged.
void tellDoneAfterFailure(
    CNetRequest& request, CNetRequest::IDoneListener* listener, const std::exception& error) noexcept;

} // namespace norla
