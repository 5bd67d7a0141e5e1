#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "norla/async/IAsyncNetRequestManager.h"
#include "norla/core/CNetRequest.h"

#include <curl/curl.h>

#include <memory>

namespace norla {

class CMultiHandle;

/// Many transfers at once on one thread, over one libcurl multi handle. Its owner adds requests and calls
/// waitForEvents() and handleEvents() in turns; CAsyncNetRequestThread does so on a thread of its own. Meant for tens
/// of transfers: some steps search through all of them.
///
/// Nothing is locked: one thread at a time uses a manager, from its construction to its destruction. The callbacks of
/// the requests (sinks, sources, done listeners) are called there, inside handleEvents(). A done listener may add and
/// remove requests; a sink or source may not (libcurl refuses that, "curlm" 8).
///
/// Neither a removal nor the manager's end waits for a name lookup or for a server. What can still hold up all
/// transfers, up to the low speed limit (30 seconds as a rule), is libcurl waiting for a mail server's answer to the
/// end of a message, or to the goodbye behind a refusal, and for the answer of an FTP server to the goodbye of an idle
/// connection that is closed to make room, when more than 256 are open. Mails to servers that may not answer are sent
/// on a thread of their own.
class KX_EXPORT CAsyncNetRequestManager : public kx::CBase, public virtual IAsyncNetRequestManager {
public:
    using RequestArray = kx::TArray<kx::P<CNetRequest>>;

    /// @throws kx::CError "Error creating curl multi handle."; as CGlobalInit::get()
    CAsyncNetRequestManager();
    CAsyncNetRequestManager(const CAsyncNetRequestManager&) = delete;
    CAsyncNetRequestManager& operator=(const CAsyncNetRequestManager&) = delete;

    /// Withdraws what still runs.
    ~CAsyncNetRequestManager() override;

    /// Prepares the request for a transfer, as CNetRequest::perform() does, and starts it. The following handleEvents()
    /// makes its first step.
    /// @throws CCURLError when libcurl refuses the request, which is not in the manager then; "curlm"
    /// CURLM_ADDED_ALREADY when it is running already, here or elsewhere, and then goes on as if nothing had been
    /// asked; kx::CInvalidArgError when it is null; what the seek() of its source throws
    void addRequest(CNetRequest* request) override;

    /// @throws CCURLError when libcurl refuses; the request stays then
    bool removeRequest(CNetRequest* request) override;

    /// Withdraws the request at this position, counted from 0 in order of addition. The position is not checked.
    /// @throws CCURLError when libcurl refuses; the request stays then
    void removeRequest(int index);

    /// Withdraws all requests, the last one first. An error ends it with the others still running.
    /// @throws CCURLError as removeRequest()
    void removeAllRequests();

    /// Lets every transfer go on as far as it can without blocking, and tells the requests that have ended so: result,
    /// done signal, done listener. They have left the manager by then.
    /// @param finished null, or gets them appended in the order of their ends
    /// @return how many have ended
    /// @throws CCURLError when libcurl fails as a whole (a transfer's failure is that transfer's result); what a done
    /// listener throws, the other ended requests are told by the next call then
    virtual int handleEvents(RequestArray* finished);

    /// Blocks until handleEvents() has something to do: for a second at most, or a tenth while no transfer has a
    /// connection.
    /// @param timeoutMs a shorter limit in milliseconds; 0 only looks, a negative number sets none
    /// @throws CCURLError when libcurl fails
    virtual void waitForEvents(int timeoutMs);

    /// The second half of handleEvents(): takes out and tells the requests that have ended.
    int handleFinishedRequests(RequestArray* finished);

private:
    struct CDescriptorSets;

    kx::P<CNetRequest> takeOut(RequestArray::iterator position, CURLMcode removed);
    RequestArray::iterator find(const CURL* handle);
    bool startAgain(CNetRequest& request);
    bool mayMissDescriptors(const CDescriptorSets& sets) const;
    long timeLibcurlWants() const;

    const std::unique_ptr<CMultiHandle> m_multi;
    RequestArray m_requests; // those whose easy handles are in the multi handle
    bool m_performAgain = false;
};

} // namespace norla
