#include "norla/files/CDownloadRun.h"

#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/plainURL.h"
#include "norla/files/headersWith.h"
#include "norla/files/suggestedName.h"
#include "norla/http/util.h"
#include "norla/pool/CAtOnceExecutor.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

using namespace std::chrono_literals; // 2s

constexpr auto checkpointPause = 2s;
constexpr long long leastSegment = 1 << 20; // in bytes; a connection for less costs more than it brings
constexpr long long mostOverlap = 64 << 10;
constexpr int mostRestarts = 3;
constexpr int rangeNotSatisfiable = 416;
constexpr int receiveBuffer = 64 << 10; // in bytes; a quarter of the system calls that libcurl's own size takes

kx::P<CTransferPool> downloadPool(const CFileDownloadOptions& options)
{
    return options.pool ? options.pool : kx::newObj<CTransferPool>();
}

/// libcurl 7.88 keeps the buffer of an attempt that has found no address, and then refuses any other size.
void enlargeBuffer(CNetRequest& request)
{
    try {
        request.setOptionInt(CURLOPT_BUFFERSIZE, receiveBuffer);
    } catch (const CCURLError& error) {
        if (error.getCode() != CURLE_BAD_FUNCTION_ARGUMENT)
            throw;
    }
}

/// The server has no such part of the file, or gives no parts.
bool isRefusedPart(const kx::CError& error, CNetRequest& request)
{
    if (!dynamic_cast<const CCURLError*>(&error))
        return false;
    const auto code = error.getCode();
    return code == CURLE_BAD_DOWNLOAD_RESUME || code == CURLE_FTP_COULDNT_USE_REST
        || (code == CURLE_HTTP_RETURNED_ERROR && request.getResponseCode() == rangeNotSatisfiable);
}

} // namespace

CDownloadRun::CConnection::CConnection(
    int connectionNumber, kx::P<CNetRequest> itsRequest, CPartFile& part, const CRetryPolicy& policy)
    : number(connectionNumber)
    , request(std::move(itsRequest))
    , sink(kx::newObj<CDownloadSink>(*request, part))
    , retries(policy)
{
}

CDownloadRun::CDownloadRun(IDownloadOrigin& origin, const CNetRequest::Path& path, const CFileDownloadOptions& options,
    std::shared_ptr<CFileSignals> signals)
    : m_origin(origin)
    , m_options(options)
    , m_signals(std::move(signals))
    , m_digests(options)
    , m_part(path, options.permissions.has_value())
    , m_pool(downloadPool(options))
    , m_executor(kx::newObj<CAtOnceExecutor>())
    , m_mostSegments(options.segments)
{
}

CDownloadRun::~CDownloadRun()
{
    stopConnections();
}

void CDownloadRun::run()
{
    try {
        throwIfCancelled();
        if (!m_options.overwrite && m_part.isTaken())
            throw kx::CError("The file '" + m_part.getPath().toString() + "' is there already.");
        m_part.requireReplaceable();
        takeOlderPart();
        m_nextCheckpoint = Clock::now() + checkpointPause;
        while (!isWhole())
            step();
        finish();
    } catch (...) { // of callbacks, anything
        stopConnections();
        keepOrRemove();
        throw;
    }
}

/// What an earlier download has left, as far as its record proves it.
void CDownloadRun::takeOlderPart()
{
    m_spareRequest = kx::newObj<CNetRequest>();
    m_origin.prepare(*m_spareRequest);
    const std::string url = m_spareRequest->getURL().toUTF8();
    m_record.place = withoutSecrets(url, true);
    const kx::String identity = m_options.identity.isEmpty() ? m_origin.getIdentity() : m_options.identity;
    m_record.identity = identityOf(identity.isEmpty() ? readable(withoutLogin(url)) : identity);
    m_defaultName = pathOf(url);

    std::optional<CDownloadRecord> older;
    if (const auto text = m_part.readRecord(); text && m_options.resume)
        older = CDownloadRecord::fromText(*text);
    m_isOurs = true;
    if (!older || !isUsable(*older)) {
        forget();
        return;
    }
    m_arrived = older->arrived;
    if (older->total)
        m_arrived.cut(*older->total - 1); // the server is asked in any case: it may have another file by now
    m_known.isKnown = true;
    m_known.validators = older->validators;
    m_known.total = older->total;
    m_known.modified = older->modified;
    m_recordedSize = m_arrived.getSize();
    m_signals->setStart(m_recordedSize);
}

/// Whether it tells of a part that is there, and may be of what is fetched now.
bool CDownloadRun::isUsable(const CDownloadRecord& older) const
{
    const bool isExpected = !older.total || !m_options.expectedSize || *older.total == *m_options.expectedSize;
    return older.identity == m_record.identity && isExpected && older.validators.areStrong(older.total)
        && !older.arrived.isEmpty() && older.arrived.getAll().rbegin()->second <= m_part.getSize();
}

bool CDownloadRun::isWhole() const
{
    return m_connections.empty() && m_known.total && m_arrived.covers(0, *m_known.total);
}

/// Whether what is there can be proved to be of what the server will give.
bool CDownloadRun::canGoOn() const
{
    return m_known.isKnown && m_known.validators.areStrong(m_known.total);
}

void CDownloadRun::step()
{
    throwIfCancelled();
    if (m_signals->isPauseWanted())
        pause();
    learn();
    requireExpectedSize();
    openConnections();
    for (const auto& [number, connection] : m_connections) {
        if (connection->nextAttempt && *connection->nextAttempt <= Clock::now())
            startAttempt(*connection);
        if (connection->transfer && connection->silence.isTooLong(*connection->transfer))
            connection->transfer->cancel();
    }
    tellProgress(false);
    const bool hasMore = !m_digests.isEmpty() && m_digests.follow(m_part, settledSize());
    for (const int number : m_signals->wait(hasMore ? Clock::now() : nextMoment())) {
        const auto found = m_connections.find(number);
        if (found != m_connections.end() && found->second->transfer && found->second->transfer->isDone())
            takeEnd(*found->second);
    }
    if (Clock::now() >= m_nextCheckpoint)
        checkpoint();
}

void CDownloadRun::pause()
{
    stopConnections();
    checkpoint();
    m_signals->setState(FileState::Paused);
    m_signals->waitForResume();
    throwIfCancelled();
    m_signals->setState(FileState::Running);
}

void CDownloadRun::openConnections()
{
    shareSpeed();
    while (static_cast<int>(m_connections.size()) < getMostConnections()) {
        const std::optional<CDownloadSink::CTask> task = nextTask();
        if (!task)
            return;
        auto request = m_spareRequest ? std::exchange(m_spareRequest, nullptr) : kx::newObj<CNetRequest>();
        auto connection = std::make_unique<CConnection>(m_nextNumber++, std::move(request), m_part, m_options.retries);
        connection->task = *task;
        connection->retries.start();
        startAttempt(*connection);
        m_connections[connection->number] = std::move(connection);
    }
}

/// Only an answer tells whether there may be several, and libcurl takes another limit with the next attempt alone: what
/// had all of it for itself goes on as one of several, each with its share.
void CDownloadRun::shareSpeed()
{
    if (m_options.speedLimit == 0 || getMostConnections() == 1)
        return;
    const auto isAlone = [](const CConnection& connection) { return connection.hasWholeLimit && connection.transfer; };
    if (m_connections.size() > 1 || (!m_connections.empty() && !isAlone(*m_connections.begin()->second)))
        return; // what pauses takes its share by itself
    const long long left = *m_known.total - arrivedBytes().getSize();
    m_mostSegments = static_cast<int>(std::clamp<long long>(left / leastSegment, 1, m_mostSegments));
    if (m_mostSegments > 1)
        stopConnections();
}

/// Several where HTTP's server gives parts of what has a strong validator.
int CDownloadRun::getMostConnections() const
{
    const bool isProved = !m_known.validators.eTag.empty() || !m_known.validators.lastModified.empty();
    return m_known.takesRanges && m_known.total && isProved && m_restarts == 0 ? m_mostSegments : 1;
}

std::optional<CDownloadSink::CTask> CDownloadRun::nextTask()
{
    if (m_connections.empty() && m_known.isKnown && !canGoOn())
        forget();
    if (m_known.total && canGoOn())
        return nextGap();
    if (!m_connections.empty())
        return std::nullopt;
    return CDownloadSink::CTask{.start = m_arrived.sizeFrom(0), .end = {}, .overlap = overlapAt(m_arrived.sizeFrom(0))};
}

/// One that nobody fills, or else the second half of the largest that somebody does.
std::optional<CDownloadSink::CTask> CDownloadRun::nextGap()
{
    CByteRanges taken = m_arrived;
    CDownloadSink* busiest = nullptr;
    CByteRanges::CRange rest{0, 2 * leastSegment - 1};
    for (const auto& [number, connection] : m_connections) {
        const auto status = connection->sink->getStatus();
        const long long end = status.end.value_or(*m_known.total);
        taken.add(status.start, end);
        // What pauses has its next task already, with the end that it had.
        if (connection->transfer && status.isJudged && end - status.position > rest.end - rest.start) {
            busiest = connection->sink.get();
            rest = {status.position, end};
        }
    }
    if (const auto gap = taken.gapFrom(0, *m_known.total))
        return taskFor(*gap);
    const long long middle = rest.end - (rest.end - rest.start) / 2;
    if (!busiest || !busiest->yieldFrom(middle))
        return std::nullopt;
    return taskFor({middle, rest.end});
}

CDownloadSink::CTask CDownloadRun::taskFor(const CByteRanges::CRange& gap) const
{
    const bool isRest = getMostConnections() == 1 && gap.end == *m_known.total;
    return {.start = gap.start, .end = isRest ? std::nullopt : std::optional(gap.end), .overlap = overlapAt(gap.start)};
}

long long CDownloadRun::overlapAt(long long position) const
{
    return std::min(m_arrived.sizeBefore(position), mostOverlap);
}

void CDownloadRun::startAttempt(CConnection& connection)
{
    prepare(connection);
    CTransfer::Options options;
    options.onDone = [signals = m_signals, number = connection.number](CTransfer&) { signals->tellEnd(number); };
    options.executor = m_executor;
    connection.nextAttempt.reset();
    connection.silence.begin(*connection.request);
    connection.transfer = m_pool->start(connection.request.get(), options);
}

void CDownloadRun::prepare(CConnection& connection)
{
    CNetRequest& request = *connection.request;
    request.reset();
    request.setSafeDefaults();
    if (m_options.speedLimit == 0) // how much is read at once is also how much comes before a limit begins
        enlargeBuffer(request);
    m_origin.prepare(request);
    CManagedRequest(request).requireWholeHeader(); // whoever prepares it may have reset it
    connection.sink->expect(connection.task, m_known);
    request.setReceiveDataSink(connection.sink.get());
    request.setOptionInt(CURLOPT_FILETIME, 1);
    request.setOptionPtr(CURLOPT_RANGE, nullptr);
    request.setOptionPtr(CURLOPT_ACCEPT_ENCODING, nullptr); // parts of a packed file are none of the file
    connection.hasWholeLimit = getMostConnections() == 1;
    if (m_options.speedLimit > 0)
        request.setOptionInt64(
            CURLOPT_MAX_RECV_SPEED_LARGE, std::max(1LL, m_options.speedLimit / getMostConnections()));
    const CAskedPart asked = connection.sink->getAsked();
    if (!asked.isPart)
        return;
    request.setRange(asked.start, asked.end ? *asked.end - asked.start : -1);
    const CValidators& validators = m_known.validators;
    const std::string& validator = validators.eTag.empty() ? validators.lastModified : validators.eTag;
    if (!validator.empty())
        request.setCustomHTTPHeaders(
            headersWith(request.getCustomHTTPHeaders(), "If-Range", kx::String::fromUTF8(validator)).get());
}

/// What the answers have told by now.
void CDownloadRun::learn()
{
    for (const auto& [number, connection] : m_connections) {
        const auto status = connection->sink->getStatus();
        if (status.isJudged)
            learnFrom(status);
    }
}

void CDownloadRun::learnFrom(const CDownloadSink::CStatus& status)
{
    const bool hasNewTotal = !m_known.total && status.known.total;
    m_known = status.known;
    if (!hasNewTotal)
        return;
    requireExpectedSize();
    if (status.position < *m_known.total)
        m_part.reserve(*m_known.total);
}

void CDownloadRun::takeEnd(CConnection& connection)
{
    const auto status = connection.sink->getStatus();
    const kx::P<kx::CError> error = status.isDone ? nullptr : connection.silence.explained(*connection.transfer);
    connection.transfer = nullptr;
    if (status.isOther) {
        startAnew();
        return;
    }
    takeName(*connection.request);
    if (status.isJudged) {
        learnFrom(status);
        m_origin.learn(*connection.request);
    }
    m_arrived.add(status.start, status.position);
    const bool hasMoved = status.position > status.start;
    if (error)
        takeFailure(connection, *error, hasMoved);
    else if (!status.isDone && !(hasMoved && canGoOn()))
        throw kx::CError("The server has sent nothing of the file behind its byte " + kx::toString(status.position)
            + ", and takes that for its end.");
    else
        m_connections.erase(connection.number);
}

void CDownloadRun::takeFailure(CConnection& connection, const kx::CError& failure, bool hasMoved)
{
    if (connection.sink->getAsked().isPart && isRefusedPart(failure, *connection.request)) {
        startAnew();
        return;
    }
    const kx::P<kx::CError> error = m_origin.explain(*connection.request, failure);
    if (!error) {
        startAttempt(connection);
        return;
    }
    if (hasMoved && canGoOn()) // else it begins anew, and would for ever
        connection.retries.start();
    const std::optional<kx::CTimeSpan> pause = connection.retries.afterFailure(*connection.request, *error);
    if (!pause) {
        if (m_connections.size() == 1 || !dynamic_cast<const CCURLError*>(&failure))
            error->throwClone();
        m_mostSegments = static_cast<int>(m_connections.size()) - 1; // the server may want fewer
        m_connections.erase(connection.number);
        return;
    }
    kx::logInfo("The download of '" + m_part.getPath().toString() + "' is tried again: " + error->getMessage());
    const auto status = connection.sink->getStatus();
    if (!canGoOn() && m_known.isKnown)
        forget();
    const long long start = m_known.isKnown ? status.position : 0;
    const bool hasEnd = m_known.isKnown && (connection.task.end || status.end != m_known.total); // or has yielded
    connection.task = {.start = start, .end = hasEnd ? status.end : std::nullopt, .overlap = overlapAt(start)};
    connection.nextAttempt = CFileSignals::momentAfter(*pause);
}

/// The server has another resource than the one of which a part is there, or gives no parts.
void CDownloadRun::startAnew()
{
    stopConnections();
    if (++m_restarts > mostRestarts)
        throw kx::CError("The file '" + m_part.getPath().toString()
            + "' has changed at the server again and again while it was fetched, or the server gives no parts of it.");
    kx::logInfo("The download of '" + m_part.getPath().toString()
        + "' begins anew: the server has another file, or gives no parts of it.");
    forget();
}

} // namespace norla
