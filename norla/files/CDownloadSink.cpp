#include "norla/files/CDownloadSink.h"

#include "kx/text/numbers.h"
#include "norla/files/CPartFile.h"

#include <algorithm>
#include <vector>

namespace norla {

namespace {

constexpr int firstRefusal = 300; // status whose body explains it

/// Ends a transfer that has brought what it was to bring.
class CEnough : public kx::CError {
public:
    CEnough()
        : CError("Another connection brings the rest.")
    {
    }
};

/// The beginning of what explains a refusal, where the request's error looks for it: a server may go on for ever.
void keepRefusal(CNetRequest& request, const unsigned char* data, int size)
{
    constexpr size_t most = 64 << 10;
    const auto buffer = request.getDefaultReceiveBuffer();
    const size_t room = most - std::min(buffer->getSize(), most);
    buffer->append(data, std::min(static_cast<size_t>(size), room));
}

} // namespace

CDownloadSink::CDownloadSink(CNetRequest& request, CPartFile& part)
    : m_request(request)
    , m_part(part)
{
}

CDownloadSink::~CDownloadSink() = default;

void CDownloadSink::expect(const CTask& task, const CKnownResource& known)
{
    const std::lock_guard lock(m_mutex);
    m_task = task;
    m_isPart = task.start > 0 || task.end;
    m_status = CStatus();
    m_status.known = known;
    m_status.start = task.start;
    m_status.position = task.start;
    m_status.end = task.end;
}

CAskedPart CDownloadSink::getAsked() const
{
    const std::lock_guard lock(m_mutex);
    return {.start = m_task.start - m_task.overlap, .end = m_task.end, .isPart = m_isPart};
}

void CDownloadSink::begin()
{
    const std::lock_guard lock(m_mutex);
    m_position = m_task.start - m_task.overlap;
    m_status.position = m_task.start;
    m_status.isJudged = false;
    m_status.isOther = false;
    m_status.isDone = false;
}

int CDownloadSink::write(
    const unsigned char* data, int size, int responseCode, const CNetRequest::HeaderMap& responseHeaders)
{
    if (responseCode >= firstRefusal) {
        keepRefusal(m_request, data, size);
        return size;
    }
    const std::lock_guard lock(m_mutex);
    if (!m_status.isJudged)
        judge(responseCode, responseHeaders);
    auto rest = static_cast<size_t>(size);
    const size_t compared = compare(data, rest);
    data += compared;
    rest -= compared;
    const size_t room = m_status.end ? static_cast<size_t>(std::max(0LL, *m_status.end - m_position)) : rest;
    const size_t taken = std::min(rest, room);
    m_part.write(m_position, data, taken);
    m_position += static_cast<long long>(taken);
    m_status.position = std::max(m_status.position, m_position);
    const bool isYielded = m_status.end && m_status.end != m_status.known.total;
    if (m_status.end && m_position == *m_status.end && isYielded && m_status.end != m_task.end) {
        m_status.isDone = true;
        throw CEnough();
    }
    if (rest > room)
        throw kx::CError(
            "The server has sent more than the " + kx::toString(*m_status.end) + " bytes that it has announced.");
    return size;
}

// A resource that is empty comes without a block.
void CDownloadSink::end(int responseCode, const CNetRequest::HeaderMap& responseHeaders)
{
    const std::lock_guard lock(m_mutex);
    if (!m_status.isJudged)
        judge(responseCode, responseHeaders);
    // A rest that tells no size may be shorter than what was asked for, unless it brings nothing (RFC 9110, section
    // 14.4).
    const bool isEnd = !m_isPart || m_status.position == m_status.start;
    m_status.isDone = m_status.end ? m_status.position >= *m_status.end : isEnd;
    if (!m_status.known.total && m_status.isDone && !m_task.end)
        m_status.known.total = m_status.position;
}

void CDownloadSink::judge(int responseCode, const CNetRequest::HeaderMap& headers)
{
    const long long announced = m_request.getInfoInt64(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    CDownloadAnswer answer{.status = responseCode,
        .headers = headers,
        .announced = announced < 0 ? std::nullopt : std::optional(announced),
        .fileTime = m_request.getInfoInt64(CURLINFO_FILETIME_T)};
    const CAskedPart asked{.start = m_task.start - m_task.overlap, .end = m_task.end, .isPart = m_isPart};
    if (judgeAnswer(asked, answer, m_status.known) == AnswerVerdict::StartAnew)
        startAnew();
    m_status.isJudged = true;
    if (!m_status.end)
        m_status.end = m_status.known.total;
}

/// What is there already must come again as it is: a server may say of another file that it is the same.
size_t CDownloadSink::compare(const unsigned char* data, size_t size)
{
    if (m_position >= m_task.start)
        return 0;
    const size_t count = std::min(size, static_cast<size_t>(m_task.start - m_position));
    std::vector<unsigned char> there(count);
    if (m_part.read(m_position, there.data(), count) != count || !std::equal(there.begin(), there.end(), data))
        startAnew();
    m_position += static_cast<long long>(count);
    return count;
}

void CDownloadSink::startAnew()
{
    m_status.isOther = true;
    throw kx::CError("The server has another file than the one of which a part is there.");
}

CDownloadSink::CStatus CDownloadSink::getStatus() const
{
    const std::lock_guard lock(m_mutex);
    return m_status;
}

bool CDownloadSink::yieldFrom(long long position)
{
    const std::lock_guard lock(m_mutex);
    if (!m_status.end || position >= *m_status.end || position <= m_position)
        return false;
    m_status.end = position;
    return true;
}

} // namespace norla
