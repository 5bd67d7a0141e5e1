#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <functional>

// Runs a transfer in the background, and stops it as soon as the person does not want it any more. Returns whether it
// has come to its end; throws what went wrong.
bool performUnlessCancelled(
    norla::CTransferPool& pool, norla::CNetRequest& request, const std::function<bool()>& isCancelled)
{
    const auto transfer = pool.start(&request);
    while (!transfer->wait(50)) { // milliseconds
        if (isCancelled())
            transfer->cancel();
    }
    if (transfer->getState() == norla::TransferState::Cancelled)
        return false;
    transfer->check();
    return true;
}
