#pragma once

#include "kx/base/IBase.h"

namespace norla {

class CNetRequest;

/// Runs transfers in the background. What only starts and withdraws them takes this interface, and so either the
/// manager (CAsyncNetRequestManager) or the thread that drives one (CAsyncNetRequestThread); these say which threads
/// may call.
class KX_EXPORT IAsyncNetRequestManager : public virtual kx::IBase {
public:
    /// Starts the transfer of a request, keeping a reference until its end. The request is left alone meanwhile; its
    /// done signal and its done listener tell the end.
    /// @param request not null, and not running here or elsewhere: that is refused
    virtual void addRequest(CNetRequest* request) = 0;

    /// Withdraws a request: its transfer stops without an end, so that neither its done signal is set nor its done
    /// listener called. Nobody may wait for it then.
    /// @return whether it was running; false when it has ended before
    virtual bool removeRequest(CNetRequest* request) = 0;
};

} // namespace norla
