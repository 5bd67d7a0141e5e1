#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"

#include <functional>

// Runs a transfer in the background, and stops it as soon as the person does not want it any more. Returns whether it
// has come to its end; throws what went wrong.
bool performUnlessCancelled(
    norla::CAsyncNetRequestThread& thread, norla::CNetRequest& request, const std::function<bool()>& isCancelled)
{
    thread.addRequest(&request);
    while (!request.waitAsyncDone(50)) { // milliseconds
        if (isCancelled()) {
            thread.removeRequest(&request);
            return false;
        }
    }
    request.checkAsyncResult();
    return true;
}
