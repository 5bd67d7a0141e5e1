#include "norla/files/CUploadRun.h"

#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/plainURL.h"
#include "norla/files/headersWith.h"
#include "norla/files/tellProgressTo.h"
#include "norla/http/util.h"
#include "norla/pool/CAtOnceExecutor.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

constexpr auto uploadProgressPause = std::chrono::milliseconds(100);

kx::P<CTransferPool> uploadPool(const CFileUploadOptions& options)
{
    return options.pool ? options.pool : kx::newObj<CTransferPool>();
}

} // namespace

CUploadRun::CUploadRun(const CFileUpload::Prepare& prepare, const CNetRequest::Path& path,
    const CFileUploadOptions& options, std::shared_ptr<CFileSignals> signals)
    : m_prepare(prepare)
    , m_options(options)
    , m_signals(std::move(signals))
    , m_source(kx::newObj<CUploadSource>(path))
    , m_size(m_source->getLength())
    , m_pool(uploadPool(options))
    , m_executor(kx::newObj<CAtOnceExecutor>())
{
}

CUploadRun::~CUploadRun() = default;

void CUploadRun::run()
{
    throwIfCancelled();
    m_prepare(*m_request);
    const std::string url = m_request->getURL().toUTF8();
    m_place = readable(withoutSecrets(url, true));
    const std::string scheme = schemeOf(url);
    if (scheme == "http" || scheme == "https")
        sendOverHTTP();
    else if (scheme == "ftp" || scheme == "ftps" || scheme == "sftp")
        sendAsFile(url);
    else
        throw kx::CError("A file is sent over HTTP, FTP or SFTP, and not over '" + readable(scheme) + "'.");
    tellProgress(true);
}

void CUploadRun::runBy(IUploadWay& way)
{
    throwIfCancelled();
    way.send(*this);
    tellProgress(true);
}

void CUploadRun::setWishListener(std::function<void()> listener)
{
    m_signals->setWishListener(std::move(listener));
}

void CUploadRun::sendOverHTTP()
{
    constexpr int preconditionFailed = 412;
    CRetries retries(m_options.retries);
    retries.start();
    for (bool isFirst = true;; isFirst = false) {
        pauseIfWanted();
        const kx::P<kx::CError> error = attempt([this](CNetRequest& request) { prepareHTTP(request); }, true);
        if (!error)
            break;
        if (m_isInterrupted)
            continue;
        if (!m_options.overwrite && getHTTPStatusCodeFromError(*error) == preconditionFailed)
            throw kx::CError("There is a file '" + m_place + "' already"
                    + kx::String(
                        isFirst ? L"." : L", unless it is this one, sent by an attempt whose answer was lost."),
                kx::String(), -1, kx::CProps(), error);
        const std::optional<kx::CTimeSpan> pause = retries.afterFailure(*m_request, *error);
        if (!pause)
            error->throwClone();
        kx::logInfo("The upload of '" + m_source->getPath().toString() + "' is tried again: " + error->getMessage());
        waitOrPause(*pause);
    }
    requireAllSent();
    m_signals->setState(FileState::Finishing);
    requireSizeOverHTTP();
}

void CUploadRun::prepareHTTP(CNetRequest& request)
{
    prepareBody(request);
    request.setHTTPMethod(kx::String(m_options.post ? L"POST" : L"PUT"));
    if (m_options.post)
        request.setCustomHTTPHeaders(
            headersWith(request.getCustomHTTPHeaders(), "Content-Type", "application/octet-stream").get());
    else if (!m_options.overwrite)
        request.setCustomHTTPHeaders(headersWith(request.getCustomHTTPHeaders(), "If-None-Match", "*").get());
}

void CUploadRun::prepareBody(CNetRequest& request)
{
    request.setSendDataSource(m_source.get());
    request.setSendDataSize(m_size);
    if (m_options.speedLimit > 0)
        request.setOptionInt64(CURLOPT_MAX_SEND_SPEED_LARGE, m_options.speedLimit);
}

/// A server may say that all is well before it has the file.
void CUploadRun::requireAllSent()
{
    const long long reached = std::max(0LL, m_source->getReached());
    // What is told is of the last request, which behind some redirects is a GET without a body.
    const bool isOneRequest = m_request->getInfoLong(CURLINFO_REDIRECT_COUNT) == 0;
    const bool isBodySent = isOneRequest || m_request->getInfoString(CURLINFO_EFFECTIVE_METHOD) != "GET";
    const long long sent = isBodySent ? m_request->getInfoInt64(CURLINFO_SIZE_UPLOAD_T) : reached;
    if (std::min(reached, sent) < m_size)
        throw kx::CError("The server has taken '" + m_place + "' for whole with "
            + kx::toString(std::min(reached, sent)) + " of the " + kx::toString(m_size) + " bytes of '"
            + m_source->getPath().toString() + "'.");
}

void CUploadRun::requireSizeOverHTTP()
{
    if (!m_options.askSizeAfterwards)
        return;
    if (const auto error = ask([](CNetRequest& request) { request.setHTTPMethod("HEAD"); }))
        error->throwClone();
    const long long size = m_request->getInfoInt64(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    if (size >= 0 && size != m_size)
        throwOtherSize(size);
}

void CUploadRun::throwOtherSize(long long size) const
{
    throw kx::CError("The file '" + m_source->getPath().toString() + "' has " + kx::toString(m_size)
        + " bytes, and what the server has of it as '" + m_place + "' has " + kx::toString(size) + ".");
}

/// A question that does no harm when it is asked twice. @return the error, null for an answer
kx::P<kx::CError> CUploadRun::ask(const Setup& setup)
{
    CRetryPolicy policy = m_options.retries;
    CRetries retries(policy);
    retries.start();
    for (;;) {
        kx::P<kx::CError> error = attempt(setup, false);
        const auto pause = error ? retries.afterFailure(*m_request, *error) : std::nullopt;
        if (!pause)
            return error;
        waitOrPause(*pause);
    }
}

/// @param isBody whether the file is sent, which a pause ends
/// @return the error with which it ended, null after a success
kx::P<kx::CError> CUploadRun::attempt(const Setup& setup, bool isBody)
{
    throwIfCancelled();
    m_request->reset();
    m_request->setSafeDefaults();
    m_prepare(*m_request);
    setup(*m_request);
    return perform(*m_request, isBody);
}

kx::P<kx::CError> CUploadRun::perform(CNetRequest& request, bool isBody)
{
    throwIfCancelled();
    m_isInterrupted = false;
    if (isBody)
        m_source->forgetReads();
    CTransfer::Options options;
    options.onDone = [signals = m_signals](CTransfer&) { signals->tellEnd(0); };
    options.executor = m_executor;
    m_silence.begin(request);
    const kx::P<CTransfer> transfer = m_pool->start(&request, options);
    try {
        await(*transfer, isBody);
    } catch (...) { // of callbacks, anything
        transfer->cancel();
        transfer->wait();
        throw;
    }
    return m_silence.explained(*transfer);
}

void CUploadRun::await(CTransfer& transfer, bool isBody)
{
    while (!transfer.isDone()) {
        if (m_signals->isCancelled())
            throwIfCancelled();
        const bool mayPause = isBody && mayInterrupt();
        if (mayPause && m_signals->isPauseWanted()) {
            m_isInterrupted = true;
            transfer.cancel();
            transfer.wait();
            return;
        }
        m_signals->wait(Clock::now() + uploadProgressPause, mayPause);
        if (m_silence.isTooLong(transfer))
            transfer.cancel();
        if (isBody)
            tellProgress(false);
    }
}

/// Whether a pause ends the attempt, and another one follows. Once the server may have all of the file, it may have
/// taken it, too: then its answer counts. Over FTP and SFTP it is looked at what is there.
bool CUploadRun::mayInterrupt() const
{
    if (!m_file.url.empty())
        return true;
    const long long reached = std::max(0LL, m_source->getReached());
    return reached < m_size && (reached == 0 || !m_options.post || m_options.retries.repeatUnsafe);
}

void CUploadRun::waitOrPause(const kx::CTimeSpan& pause)
{
    const auto until = CFileSignals::momentAfter(pause);
    while (Clock::now() < until && !m_signals->isCancelled() && !m_signals->isPauseWanted())
        m_signals->wait(until);
    pauseIfWanted();
}

void CUploadRun::pauseIfWanted()
{
    throwIfCancelled();
    if (!m_signals->isPauseWanted())
        return;
    m_signals->setState(FileState::Paused);
    m_signals->waitForResume();
    throwIfCancelled();
    m_signals->setState(FileState::Running);
}

void CUploadRun::tellProgress(bool isLast)
{
    if (Clock::now() < m_nextProgress && !isLast)
        return;
    m_nextProgress = Clock::now() + uploadProgressPause;
    tell(isLast ? m_size : m_source->getPosition());
}

void CUploadRun::tellFound(long long bytes)
{
    m_signals->setStart(m_signals->getProgress().done + bytes);
}

void CUploadRun::tell(long long done)
{
    m_signals->setProgress(done, m_size);
    tellProgressTo(m_options.onProgress, m_options.executor, m_signals->getProgress(),
        "What is told of an upload's progress has thrown");
}

void CUploadRun::throwIfCancelled() const
{
    if (m_signals->isCancelled())
        throw CCURLError(CURLE_ABORTED_BY_CALLBACK, "the upload was cancelled", kx::String(), 0, kx::String());
}

} // namespace norla
