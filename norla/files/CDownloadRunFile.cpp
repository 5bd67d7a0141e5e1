// What a download keeps, tells, and makes of what has come.

#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/files/CDownloadRun.h"
#include "norla/files/suggestedName.h"
#include "norla/files/tellProgressTo.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

constexpr auto downloadProgressPause = std::chrono::milliseconds(100);
constexpr auto downloadCheckpointPause = std::chrono::seconds(2);
constexpr size_t digestBlockSize = 256 << 10;

} // namespace

void CDownloadRun::throwIfCancelled() const
{
    if (m_signals->isCancelled())
        throw CCURLError(CURLE_ABORTED_BY_CALLBACK, "the download was cancelled", kx::String(), 0, kx::String());
}

/// With what they have brought.
void CDownloadRun::stopConnections() noexcept
{
    try {
        for (const auto& [number, connection] : m_connections) {
            if (connection->transfer)
                connection->transfer->cancel();
        }
        for (const auto& [number, connection] : m_connections) {
            if (!connection->transfer)
                continue;
            connection->transfer->wait();
            const auto status = connection->sink->getStatus();
            if (status.isJudged && !status.isOther) {
                takeName(*connection->request);
                m_origin.learn(*connection->request);
                m_known = status.known;
                m_arrived.add(status.start, status.position);
            }
        }
        m_connections.clear();
    } catch (const std::exception& error) {
        kx::onExceptionInDestructorIgnored("norla::CDownloadRun", error, true);
    }
}

/// In this order no record can tell of bytes that others have taken the place of.
void CDownloadRun::forget()
{
    m_part.removeRecord();
    m_part.truncate(0);
    m_arrived.clear();
    m_digests.forget();
    m_known = CKnownResource();
    m_recordedSize = 0;
    m_signals->setStart(0);
}

/// Behind a failure.
void CDownloadRun::keepOrRemove() noexcept
{
    try {
        if (!m_isOurs) {
            if (m_part.getSize() == 0 && !m_part.readRecord()) // made by this object
                m_part.remove();
            return;
        }
        if (m_options.keepPart && !m_isWrong && canGoOn() && !m_arrived.isEmpty()) {
            m_part.releaseReserve();
            writeRecord();
        } else {
            m_part.remove();
        }
    } catch (const std::exception& error) { // the record that is there, if any, tells less, and no lies
        kx::logError(error, "What has come of a download cannot be kept as it is", kx::String());
    }
}

CByteRanges CDownloadRun::arrivedBytes() const
{
    CByteRanges bytes = m_arrived;
    for (const auto& [number, connection] : m_connections) {
        const auto status = connection->sink->getStatus();
        if (connection->transfer && status.isJudged && !status.isOther)
            bytes.add(status.start, status.position);
    }
    return bytes;
}

/// Bytes of the beginning that are there and that no connection writes any more, whatever it was asked for: a digest
/// would not notice.
long long CDownloadRun::settledSize() const
{
    long long size = arrivedBytes().sizeFrom(0);
    for (const auto& [number, connection] : m_connections) {
        const auto status = connection->sink->getStatus();
        size = std::min(size, connection->transfer ? status.position : connection->task.start);
    }
    return size;
}

void CDownloadRun::checkpoint()
{
    m_nextCheckpoint = Clock::now() + downloadCheckpointPause;
    learn();
    if (canGoOn() && m_options.keepPart && arrivedBytes().getSize() > m_recordedSize)
        writeRecord();
}

/// What it claims is on the disk before.
void CDownloadRun::writeRecord()
{
    m_record.arrived = arrivedBytes();
    m_part.sync();
    m_record.validators = m_known.validators;
    m_record.total = m_known.total;
    m_record.modified = m_known.modified;
    m_part.writeRecord(m_record.toText());
    m_recordedSize = m_record.arrived.getSize();
}

CDownloadRun::Clock::time_point CDownloadRun::nextMoment() const
{
    Clock::time_point first = std::min(m_nextCheckpoint, m_nextProgress);
    for (const auto& [number, connection] : m_connections) {
        if (connection->nextAttempt)
            first = std::min(first, *connection->nextAttempt);
    }
    return first;
}

void CDownloadRun::tellProgress(bool isLast)
{
    if (Clock::now() < m_nextProgress && !isLast)
        return;
    m_nextProgress = Clock::now() + downloadProgressPause;
    m_signals->setProgress(arrivedBytes().getSize(), m_known.total);
    tellProgressTo(m_options.onProgress, m_options.executor, m_signals->getProgress(),
        "What is told of a download's progress has thrown");
}

void CDownloadRun::takeName(CNetRequest& request)
{
    const auto& headers = request.getResponseHeaderMap();
    const auto found = headers.find("content-disposition");
    if (found != headers.end())
        m_lastName = suggestedNameIn(found->second);
}

kx::String CDownloadRun::getSuggestedName() const
{
    return m_lastName.isEmpty() ? suggestedNameOf(m_defaultName) : m_lastName;
}

/// A body of unknown size may have no end.
void CDownloadRun::requireExpectedSize()
{
    if (!m_options.expectedSize)
        return;
    const long long size = m_known.total.value_or(arrivedBytes().getSize());
    if (m_known.total ? size == *m_options.expectedSize : size <= *m_options.expectedSize)
        return;
    m_isWrong = true;
    throw kx::CError("The file '" + m_part.getPath().toString() + "' has " + kx::toString(size) + " bytes"
        + kx::String(m_known.total ? L"" : L" or more") + " at the server, and not the "
        + kx::toString(*m_options.expectedSize) + " that were expected.");
}

/// @return what is empty behind the end of the file
std::string_view CDownloadRun::blockAt(long long& position, std::vector<unsigned char>& block) const
{
    throwIfCancelled();
    const size_t count = m_part.read(position, block.data(), block.size());
    position += static_cast<long long>(count);
    return {reinterpret_cast<const char*>(block.data()), count};
}

void CDownloadRun::requireDigests()
{
    while (m_digests.follow(m_part, *m_known.total))
        throwIfCancelled();
    const kx::String difference = m_digests.findDifference();
    if (difference.isEmpty())
        return;
    m_isWrong = true;
    throw kx::CError(
        "The file '" + m_part.getPath().toString() + "' is not the one that was expected: its " + difference + ".");
}

void CDownloadRun::requireAsOriginSays()
{
    std::vector<unsigned char> block; // for those who read: most do not
    const auto wrong = m_origin.judge([this, &block, position = 0LL]() mutable {
        block.resize(digestBlockSize);
        return blockAt(position, block);
    });
    if (!wrong)
        return;
    m_isWrong = true;
    wrong->throwClone();
}

void CDownloadRun::finish()
{
    m_signals->setState(FileState::Finishing);
    requireExpectedSize();
    m_part.truncate(*m_known.total);
    requireDigests();
    requireAsOriginSays();
    CPartFile::CAttributes attributes;
    if (m_options.permissions)
        attributes.permissions = static_cast<mode_t>(*m_options.permissions & 0777);
    if (m_options.keepModificationTime && m_known.modified >= 0)
        attributes.modified = m_known.modified;
    tellProgress(true); // which may throw: behind the name there is nothing to go back to
    throwIfCancelled();
    m_part.finish(attributes, m_options.overwrite);
}

} // namespace norla
