#include "norla/files/CSilenceWatch.h"

#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/plainURL.h"

namespace norla {

void CSilenceWatch::begin(CNetRequest& request)
{
    const std::string url = request.getURL().toUTF8();
    *this = CSilenceWatch();
    if (schemeOf(url) != "sftp")
        return;
    m_limit = std::chrono::milliseconds(CManagedRequest(request).getLongestSilence());
    m_host = readable(hostOf(url));
    m_path = readable(pathOf(url));
    m_since = Clock::now();
}

bool CSilenceWatch::isTooLong(CTransfer& transfer)
{
    if (m_limit.count() == 0 || m_isOver)
        return m_isOver;
    const CTransferProgress now = transfer.getProgress();
    const bool isQueued = transfer.getState() == TransferState::Queued;
    if (isQueued || now.received != m_last.received || now.sent != m_last.sent) {
        m_since = Clock::now();
        m_last = now;
    }
    m_isOver = Clock::now() - m_since >= m_limit;
    return m_isOver;
}

kx::P<kx::CError> CSilenceWatch::explained(const CTransfer& transfer) const
{
    kx::P<kx::CError> error = transfer.getError();
    if (!m_isOver || !error)
        return error;
    CManagedRequest(transfer.getRequest()).blameTime();
    const long long seconds = std::chrono::ceil<std::chrono::seconds>(m_limit).count();
    CFailureDetails details;
    details.phase = TransferPhase::Waiting;
    details.limit = TransferLimit::Inactivity;
    details.limitText = "The server " + m_host + " has not answered for " + kx::toString(seconds) + " seconds.";
    details.host = m_host;
    details.path = m_path;
    return kx::newObj<CCURLError>(
        CURLE_OPERATION_TIMEDOUT, details.limitText, kx::String(), 0, kx::String(), kx::String(), details);
}

} // namespace norla
