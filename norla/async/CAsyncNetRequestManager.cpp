#include "norla/async/CAsyncNetRequestManager.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/threads/CPosixSelect.h"
#include "kx/threads/CThread.h"
#include "norla/core/CHeldCookies.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/CMultiHandle.h"
#include "norla/core/CSigPipeBlock.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <sys/resource.h>
#include <utility>

namespace norla {

namespace {

constexpr long longestWait = 1000;    // milliseconds
constexpr int longestBlindWait = 100; // without a descriptor to watch
constexpr long mostIdleConnections = 256;

/// The caller can only shorten what libcurl wants.
int waitTime(int callerLimit, long libcurlLimit) noexcept
{
    if (libcurlLimit == -1 || libcurlLimit > longestWait)
        libcurlLimit = longestWait;
    return callerLimit >= 0 && callerLimit <= libcurlLimit ? callerLimit : static_cast<int>(libcurlLimit);
}

bool canHaveLargeDescriptors() noexcept
{
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur > FD_SETSIZE;
}

// From 8.9 on libcurl puts the connections that it is closing into an fd_set whatever their numbers are, and the C
// library then ends the process.
bool mayAskForDescriptorSets() noexcept
{
    constexpr unsigned int firstUnchecked = 0x080900;
    static const bool isChecked = curl_version_info(CURLVERSION_NOW)->version_num < firstUnchecked;
    return isChecked || !canHaveLargeDescriptors();
}

/// Gives a request back that could not be started.
class CClaim {
public:
    explicit CClaim(CNetRequest& request)
        : m_request(&request)
    {
    }
    CClaim(const CClaim&) = delete;
    CClaim& operator=(const CClaim&) = delete;
    ~CClaim()
    {
        if (m_request)
            m_request->leaveManager();
    }

    void keep() noexcept { m_request = nullptr; }

private:
    CNetRequest* m_request;
};

} // namespace

struct CAsyncNetRequestManager::CDescriptorSets {
    explicit CDescriptorSets(CURLM* multi)
    {
        CMultiHandle::check(curl_multi_fdset(multi, &readable, &writable, &exceptional, &highest));
    }

    bool isEmpty() const noexcept { return highest == -1; }

    size_t size() const noexcept
    {
        size_t count = 0;
        for (int descriptor = 0; descriptor <= highest; ++descriptor)
            count += FD_ISSET(descriptor, &readable) || FD_ISSET(descriptor, &writable);
        return count;
    }

    // What there is to select's result, the next handleEvents() finds by itself: a ready descriptor, and also one that
    // somebody has closed, which must end its own transfer and not all of them.
    void select(int timeoutMs)
    {
        try {
            kx::CPosixSelect::select(highest + 1, &readable, &writable, &exceptional, timeoutMs);
        } catch (const kx::CError&) {
            return;
        }
    }

    fd_set readable{};
    fd_set writable{};
    fd_set exceptional{};
    int highest = 0;
};

CAsyncNetRequestManager::CAsyncNetRequestManager()
    : m_multi(std::make_unique<CMultiHandle>(mostIdleConnections))
{
}

CAsyncNetRequestManager::~CAsyncNetRequestManager()
{
    try {
        removeAllRequests();
    } catch (const std::exception& error) {
        m_multi->keepForEver();
        kx::onExceptionInDestructorIgnored("norla::CAsyncNetRequestManager", error, true);
    }
}

void CAsyncNetRequestManager::addRequest(CNetRequest* request)
{
    if (!request)
        throw kx::CInvalidArgError("request is null", "CAsyncNetRequestManager::addRequest");
    if (!request->claim())
        CMultiHandle::check(CURLM_ADDED_ALREADY); // as libcurl says, but before the running transfer is touched
    CClaim claim(*request);
    request->setAsyncInfo(false, CURLE_OK);
    if (m_requests.size() == m_requests.capacity()) // now, so that what runs is always in the array
        m_requests.reserve(std::max<size_t>(8, 2 * m_requests.size()));
    CManagedRequest(*request).enter(m_multi->getSockets());
    CURLMcode result = CURLM_OK;
    {
        std::optional<CSigPipeBlock> block;
        if (request->hasOwnConnections())
            block.emplace(); // they are closed here
        result = curl_multi_add_handle(m_multi->get(), request->getEasyHandle());
    }
    CMultiHandle::check(result);
    m_requests.emplace_back(request);
    claim.keep();
}

bool CAsyncNetRequestManager::removeRequest(CNetRequest* request)
{
    const auto found = std::find(m_requests.begin(), m_requests.end(), request);
    if (found == m_requests.end())
        return false;
    removeRequest(static_cast<int>(std::distance(m_requests.begin(), found)));
    return true;
}

void CAsyncNetRequestManager::removeRequest(int index)
{
    kx::P<CNetRequest> removed;
    {
        const CSigPipeBlock block; // the connection of a running transfer is closed here
        CNetRequest& request = *m_requests[static_cast<size_t>(index)];
        CManagedRequest(request).beginWithdrawal();
        const CURLMcode result = curl_multi_remove_handle(m_multi->get(), request.getEasyHandle());
        CManagedRequest(request).endWithdrawal();
        removed = takeOut(m_requests.begin() + index, result);
    }
}

// The caller drops the reference: with the last one go sinks and listeners, whose destructors may come back to this
// manager.
kx::P<CNetRequest> CAsyncNetRequestManager::takeOut(RequestArray::iterator position, CURLMcode removed)
{
    CMultiHandle::check(removed);
    kx::P<CNetRequest> request = std::move(*position);
    m_requests.erase(position);
    request->leaveManager();
    return request;
}

void CAsyncNetRequestManager::removeAllRequests()
{
    while (!m_requests.empty())
        removeRequest(static_cast<int>(m_requests.size() - 1));
}

void CAsyncNetRequestManager::waitForEvents(int timeoutMs)
{
    if (m_performAgain)
        return;
    if (!mayAskForDescriptorSets()) {
        const int limit = waitTime(timeoutMs, timeLibcurlWants());
        CMultiHandle::check(curl_multi_poll(
            m_multi->get(), nullptr, 0, m_requests.empty() ? std::min(limit, longestBlindWait) : limit, nullptr));
        return;
    }
    CDescriptorSets sets(m_multi->get());
    const int time = waitTime(timeoutMs, timeLibcurlWants());
    const int blindTime = sets.isEmpty() ? std::min(time, longestBlindWait) : time;
    if (mayMissDescriptors(sets))
        CMultiHandle::check(curl_multi_poll(m_multi->get(), nullptr, 0, blindTime, nullptr));
    else if (sets.isEmpty())
        kx::CThread::sleep(blindTime);
    else
        sets.select(time);
}

long CAsyncNetRequestManager::timeLibcurlWants() const
{
    long time = 0;
    CMultiHandle::check(curl_multi_timeout(m_multi->get(), &time));
    return time;
}

// select() cannot watch a descriptor of FD_SETSIZE or more, and libcurl leaves such out of the sets. Where they may
// exist and there are fewer descriptors than transfers, libcurl waits itself, with poll().
bool CAsyncNetRequestManager::mayMissDescriptors(const CDescriptorSets& sets) const
{
    return sets.size() < m_requests.size() && canHaveLargeDescriptors();
}

int CAsyncNetRequestManager::handleEvents(RequestArray* finished)
{
    int running = 0;
    CURLMcode result = CURLM_OK;
    {
        const CSigPipeBlock block;
        m_multi->getSockets().noteTurn();
        result = curl_multi_perform(m_multi->get(), &running);
        CHeldCookies::release();
    }
    if (result == CURLM_CALL_MULTI_PERFORM) {
        m_performAgain = true;
    } else {
        CMultiHandle::check(result);
        m_performAgain = false;
    }
    if (running == static_cast<int>(m_requests.size()))
        return 0;
    return handleFinishedRequests(finished);
}

// The request stays in the array: for everybody else its transfer has not ended.
bool CAsyncNetRequestManager::startAgain(CNetRequest& request)
{
    return curl_multi_remove_handle(m_multi->get(), request.getEasyHandle()) == CURLM_OK
        && curl_multi_add_handle(m_multi->get(), request.getEasyHandle()) == CURLM_OK;
}

CAsyncNetRequestManager::RequestArray::iterator CAsyncNetRequestManager::find(const CURL* handle)
{
    return std::find_if(m_requests.begin(), m_requests.end(),
        [handle](const kx::P<CNetRequest>& request) { return request->getEasyHandle() == handle; });
}

int CAsyncNetRequestManager::handleFinishedRequests(RequestArray* finished)
{
    int count = 0;
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_multi->get(), &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        auto found = find(message->easy_handle);
        if (found == m_requests.end())
            continue;
        CURL* const handle = message->easy_handle;
        CURLcode result = message->data.result; // the message goes with the request
        const kx::P<CNetRequest> request = *found;
        const bool isToBeTriedAgain = CManagedRequest(*request).beginSecondAttempt();
        found = find(handle); // a second attempt rewinds the source, which may have added others, or withdrawn this one
        if (found == m_requests.end())
            continue;
        if (isToBeTriedAgain) {
            if (startAgain(*request))
                continue;
            result = CURLE_USE_SSL_FAILED; // of the first attempt
        }
        CManagedRequest(*request).dropConnectionAfter(result);
        takeOut(found, curl_multi_remove_handle(m_multi->get(), handle));
        ++count;
        request->setAsyncInfo(true, result);
        if (finished)
            finished->push_back(request);
    }
    return count;
}

} // namespace norla
