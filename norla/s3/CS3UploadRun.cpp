#include "norla/s3/CS3UploadRun.h"

#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CStreamDataSource.h"
#include "norla/core/performWithRetries.h"
#include "norla/pool/CAtOnceExecutor.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3SourceRange.h"
#include "norla/s3/lateErrors.h"
#include "norla/s3/multipartDocuments.h"
#include "norla/s3/policyForStore.h"
#include "norla/s3/uploadPartSize.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace norla {

namespace {

/// @param deadline zero for none @param left of a budget
kx::CTimeSpan shorterOf(const kx::CTimeSpan& deadline, const kx::CTimeSpan& left)
{
    if (left.isInfinite())
        return deadline;
    const auto rest = kx::CTimeSpan::fromMicroseconds(std::max(1LL, left.getMicroseconds())); // 0 would be none
    const bool isNone = deadline.isInfinite() || deadline == kx::CTimeSpan();
    return isNone || rest.getMicroseconds() < deadline.getMicroseconds() ? rest : deadline;
}

constexpr auto uploadProgressPause = std::chrono::milliseconds(100);

kx::P<CTransferPool> poolFor(const CS3ParallelUploadOptions& options, size_t atOnce)
{
    if (options.pool)
        return options.pool;
    CTransferPool::Options own;
    own.atOnce = static_cast<int>(std::min<size_t>(atOnce, std::numeric_limits<int>::max()));
    return kx::newObj<CTransferPool>(own);
}

size_t partsAtOnce(const CS3ParallelUploadOptions& options, bool isKept, long long partSize)
{
    if (!isKept)
        return 1; // a source is read in one place at a time
    const long long room = options.memory / std::max(1LL, partSize);
    return static_cast<size_t>(std::clamp<long long>(options.atOnce, 1, std::max(1LL, room)));
}

/// The bytes of a source in memory.
kx::P<CNetRequest::IDataSource> keptSource(CNetRequest::IDataSource& source, long long size)
{
    const auto bytes = kx::newObj<CNetRequest::Buffer>(static_cast<size_t>(size));
    source.seek(0);
    for (long long done = 0; done < size;) {
        const int wanted = static_cast<int>(std::min<long long>(size - done, 1 << 20));
        const int count = source.read(bytes->getData() + done, wanted, {});
        if (count <= 0 || count > wanted) {
            bytes->setSize(static_cast<size_t>(done)); // the digest tells it
            break;
        }
        done += count;
    }
    return kx::newObj<CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get());
}

} // namespace

CS3UploadRun::CPart::CPart(
    CS3Client& client, int partNumber, kx::P<CNetRequest::IDataSource> from, const CRetryPolicy& policy)
    : number(partNumber)
    , source(std::move(from))
    , attempt(client)
    , retries(policy)
{
}

CS3UploadRun::CS3UploadRun(CS3Client& client, CNetRequest& request, const CS3ParallelUploadOptions& options,
    std::shared_ptr<CS3UploadSignals> signals, CNetRequest::IDataSource& source, const kx::String& bucketName,
    const kx::String& objectName)
    : m_client(client)
    , m_request(request)
    , m_options(options)
    , m_signals(std::move(signals))
    , m_source(&source)
    , m_size(source.getLength())
    , m_partSize(uploadPartSize(m_size, options.partSize))
    , m_isKept(std::min(m_partSize, m_size) <= options.memory)
    , m_atOnce(partsAtOnce(options, m_isKept, std::min(m_partSize, m_size)))
    , m_partCount(static_cast<int>(std::max(1LL, (m_size + m_partSize - 1) / m_partSize)))
    , m_pool(poolFor(options, m_atOnce))
    , m_executor(kx::newObj<CAtOnceExecutor>())
    , m_policy(policyForStore(client, options.retries))
    , m_upload(&client, &request, bucketName, objectName, options.multipart)
{
}

CS3UploadRun::~CS3UploadRun()
{
    stopParts();
}

kx::String CS3UploadRun::run()
{
    throwIfCancelled();
    begin();
    sendParts();
    throwIfCancelled();
    if (m_options.beforeCompletion)
        m_options.beforeCompletion();
    return complete();
}

void CS3UploadRun::begin()
{
    if (m_options.uploadId.isEmpty()) {
        m_upload.create();
    } else {
        m_upload.attach(m_options.uploadId);
        for (const CS3UploadedPart& part : m_upload.listParts())
            m_there[part.number] = part;
    }
    if (m_options.onStarted)
        m_options.onStarted(m_upload.getId());
}

void CS3UploadRun::sendParts()
{
    for (;;) {
        throwIfCancelled();
        startDueAttempts();
        if (m_nextPart <= m_partCount && m_parts.size() < m_atOnce) {
            startNextPart();
            tellProgress();
            continue;
        }
        if (m_parts.empty())
            return;
        for (const int number : m_signals->wait(nextMoment())) {
            // What is told may be the end of a part of an upload before this one.
            const auto part = m_parts.find(number);
            if (part != m_parts.end() && part->second->transfer && part->second->transfer->isDone())
                takeEnd(*part->second);
        }
        tellProgress();
    }
}

void CS3UploadRun::startNextPart()
{
    const int number = m_nextPart;
    const long long start = (number - 1) * m_partSize;
    const long long size = std::min(m_partSize, m_size - start);
    auto part = std::make_unique<CPart>(m_client, number, sourceOf(start, size), m_policy);
    part->digest = CS3PartDigest::of(*part->source, size);
    ++m_nextPart;
    if (isThere(*part)) {
        noteDone(*part, m_there[number].eTag);
        if (m_options.onFound)
            m_options.onFound(size);
        return;
    }
    part->retries.start(); // what was read before is not of its time
    CPart& started = *part;
    m_parts[number] = std::move(part);
    startAttempt(started);
}

bool CS3UploadRun::isThere(const CPart& part) const
{
    const auto found = m_there.find(part.number);
    return found != m_there.end() && found->second.size == part.digest.size
        && md5InETag(found->second.eTag) == part.digest.md5;
}

kx::P<CNetRequest::IDataSource> CS3UploadRun::sourceOf(long long start, long long size) const
{
    const auto range = kx::newObj<CS3SourceRange>(m_source, start, size);
    return m_isKept ? keptSource(*range, size) : kx::P<CNetRequest::IDataSource>(range);
}

void CS3UploadRun::startAttempt(CPart& part)
{
    prepare(part);
    part.attempt.begin(*part.request);
    send(part);
}

void CS3UploadRun::prepare(CPart& part)
{
    m_upload.prepareUploadPart(*part.request, part.number, part.source.get(), part.digest);
}

void CS3UploadRun::send(CPart& part)
{
    CTransfer::Options options;
    options.attemptDeadline = shorterOf(m_options.partDeadline, part.retries.getTimeLeft());
    options.onDone = [signals = m_signals, number = part.number](CTransfer&) { signals->tellEnd(number); };
    options.executor = m_executor;
    part.nextAttempt.reset();
    part.transfer = m_pool->start(part.request.get(), options);
}

void CS3UploadRun::startDueAttempts()
{
    for (const auto& [number, part] : m_parts) {
        if (part->nextAttempt && *part->nextAttempt <= Clock::now())
            startAttempt(*part);
    }
}

void CS3UploadRun::takeEnd(CPart& part)
{
    const kx::P<kx::CError> error = failureOf(part);
    part.transfer = nullptr;
    if (error && part.attempt.isCorrected(*part.request, *error)) {
        kx::logInfo("Part " + kx::toString(part.number) + " is signed again: " + error->getMessage());
        prepare(part);
        send(part);
        return;
    }
    if (error) {
        const std::optional<kx::CTimeSpan> pause = part.retries.afterFailure(*part.request, *error);
        if (!pause)
            error->throwClone();
        kx::logInfo("Part " + kx::toString(part.number) + " is sent again: " + error->getMessage());
        part.nextAttempt = Clock::now() + std::chrono::microseconds(pause->getMicroseconds());
        return;
    }
    const kx::String eTag = m_upload.finishUploadPart(*part.request, part.number, part.digest);
    noteDone(part, eTag);
    m_parts.erase(part.number);
}

void CS3UploadRun::noteDone(const CPart& part, const kx::String& eTag)
{
    const bool isMD5 = md5InETag(eTag) == part.digest.md5;
    m_done.push_back({part.number, eTag, part.digest.size, isMD5 ? part.digest.md5 : std::string()});
    m_doneBytes += part.digest.size;
}

kx::P<kx::CError> CS3UploadRun::failureOf(const CPart& part) const
{
    kx::P<kx::CError> error = part.transfer->getError();
    if (!error)
        return nullptr;
    try {
        m_client.tryThrowBetterError(*error, *part.request->getDefaultReceiveBuffer());
    } catch (const CS3Error& explained) {
        return explained.clone();
    }
    return error;
}

std::optional<CS3UploadRun::Clock::time_point> CS3UploadRun::nextMoment() const
{
    std::optional<Clock::time_point> first;
    if (m_options.onProgress)
        first = m_nextProgress;
    for (const auto& [number, part] : m_parts) {
        if (part->nextAttempt && (!first || *part->nextAttempt < *first))
            first = part->nextAttempt;
    }
    return first;
}

void CS3UploadRun::tellProgress()
{
    const bool isLast = m_parts.empty() && m_nextPart > m_partCount;
    if (!m_options.onProgress || (Clock::now() < m_nextProgress && !isLast))
        return;
    m_nextProgress = Clock::now() + uploadProgressPause;
    long long bytes = m_doneBytes;
    for (const auto& [number, part] : m_parts) {
        if (part->transfer)
            bytes += std::clamp(part->transfer->getProgress().sent, 0LL, part->digest.size);
    }
    if (bytes <= m_toldBytes) // a part begins anew, or nothing moves
        return;
    m_toldBytes = bytes;
    m_options.onProgress(bytes, m_size);
}

kx::String CS3UploadRun::complete()
{
    std::sort(m_done.begin(), m_done.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
    const CRetryPolicy policy = policyForLateErrors(m_client, m_options.retries);
    kx::String eTag;
    performWithRetries(m_request, policy, [this, &eTag] { eTag = m_upload.complete(m_done); });
    return eTag;
}

// A part that came behind the end of the upload would be kept by the store.
void CS3UploadRun::stopParts() noexcept
{
    try {
        for (const auto& [number, part] : m_parts) {
            if (part->transfer)
                part->transfer->cancel();
        }
        for (const auto& [number, part] : m_parts) {
            if (part->transfer)
                part->transfer->wait();
        }
        m_parts.clear();
    } catch (const std::exception& error) {
        kx::onExceptionInDestructorIgnored("norla::CS3UploadRun", error, true);
    }
}

void CS3UploadRun::end() noexcept
{
    stopParts();
    const bool isKept = m_options.keepFailed || !m_options.uploadId.isEmpty(); // whoever resumes it has kept it before
    if (isKept || m_upload.getId().isEmpty())
        return;
    try {
        m_upload.abort();
    } catch (const std::exception& error) {
        kx::logError(error, "An upload by parts could not be aborted", kx::String());
    }
}

void CS3UploadRun::throwIfCancelled() const
{
    if (m_signals->isCancelled())
        throw CCURLError(CURLE_ABORTED_BY_CALLBACK, "the upload was cancelled", kx::String(), 0, kx::String());
}

} // namespace norla
