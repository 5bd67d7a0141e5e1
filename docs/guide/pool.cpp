#include "norla/core/CNetRequest.h"
#include "norla/core/explain.h"
#include "norla/pool/CTransferPool.h"

// Fetches many pages, at most six at once from each host, and tries again what has failed for a moment. Returns what
// went wrong, a sentence for each page.
kx::TArray<kx::String> fetchPages(const kx::TArray<kx::String>& urls)
{
    const norla::CTransferPool::Options limits{.perHost = 6};
    const auto pool = kx::newObj<norla::CTransferPool>(limits); // a program has one of them
    kx::TArray<kx::P<norla::CTransfer>> transfers;
    for (const kx::String& url : urls) {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setSafeDefaults();
        request->setURL(url);
        transfers.push_back(pool->start(request.get(), // which is left alone until its end
            {.attemptDeadline = kx::CTimeSpan::fromSeconds(30), .retries = {.attempts = 3}}));
    }
    kx::TArray<kx::String> problems;
    for (const auto& transfer : transfers) {
        transfer->wait();
        if (const auto error = transfer->getError())
            problems.push_back(norla::explain(*error));
        // else transfer->getRequest().getDefaultReceiveBuffer() has the page
    }
    return problems;
}
