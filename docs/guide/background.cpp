#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"

// Fetches several files at once, on a thread of their own; returns how many have come.
int fetchAll(const kx::TArray<kx::String>& urls)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>(); // a program has one of them
    thread->start();
    kx::TArray<kx::P<norla::CNetRequest>> requests;
    for (const kx::String& url : urls) {
        requests.push_back(kx::newObj<norla::CNetRequest>());
        requests.back()->setSafeDefaults();
        requests.back()->setURL(url);
        thread->addRequest(requests.back().get()); // not touched any more until it is done
    }
    int fetched = 0;
    for (const auto& request : requests) {
        while (!request->waitAsyncDone(1000) && thread->isAlive()) {
        }
        if (request->isAsyncDone() && request->getResponseCode() == 200)
            ++fetched; // checkAsyncResult() throws what went wrong, if something did
    }
    return fetched;
}
