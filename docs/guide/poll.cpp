#include "norla/core/CNetRequest.h"
#include "norla/core/explain.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"

#include <poll.h>

// Fetches a page in a program with a loop of its own, unless somebody presses a key before it is there. Returns what to
// show to that person.
kx::String fetchUnlessKey(const kx::String& url, int keyboard)
{
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    const norla::CTransferPool::Options callbacksWait{.executor = queue};
    const auto pool = kx::newObj<norla::CTransferPool>(callbacksWait);
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    kx::String outcome;
    norla::CTransfer::Options options;
    options.onDone = [&outcome](norla::CTransfer& transfer) {
        const auto error = transfer.getError();
        outcome = error ? norla::explain(*error) : "It is all there.";
    };
    const auto transfer = pool->start(request.get(), options);
    while (outcome.isEmpty()) {
        pollfd sources[] = {{queue->getDescriptor(), POLLIN, 0}, {keyboard, POLLIN, 0}};
        poll(sources, 2, -1);
        queue->runPending(); // calls onDone
        if (sources[1].revents == 0)
            continue;
        transfer->cancel();
        keyboard = -1; // which poll() leaves out
    }
    return outcome;
}
