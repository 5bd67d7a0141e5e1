#pragma once

#include "norla/core/CFailureDetails.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CTransferProgress.h"

namespace norla {

/// A request as somebody sees it who lets its transfer wait, tries it again, and may cancel it, before its one end is
/// told. Made for a moment; the request is claimed (CNetRequest::claim()).
class CManagedRequest {
public:
    explicit CManagedRequest(CNetRequest& request) noexcept
        : m_request(request)
    {
    }

    /// A transfer is to come: the request is not done until tellEnd().
    void expect();

    /// The transfer ends with this error, unless there is an earlier one already.
    void fail(const std::exception& error) noexcept;

    /// The same with one that says what the transfer was about.
    /// @param limit which one was reached; None: the program has cancelled it
    /// @param text a whole sentence
    void fail(TransferLimit limit, const kx::String& text) noexcept;

    /// Of the current attempt, or the last one.
    CTransferProgress getProgress() const noexcept;

    /// An attempt has ended, and how is recorded. Nobody is told.
    /// @return the error; null after a success
    /// @throws CCURLError or std::bad_alloc when it cannot be recorded
    kx::P<kx::CError> endAttempt(CURLcode result);

    /// All attempts have ended: sets the done signal, and calls the listener. What the listener throws is logged.
    /// @param failure null after a success
    void tellEnd(const kx::CError* failure) noexcept;

private:
    CNetRequest& m_request;
};

} // namespace norla
