#include "norla/s3/CS3AnswerSink.h"

#include <algorithm>
#include <utility>

namespace norla {

CS3AnswerSink::CS3AnswerSink(kx::P<CNetRequest::IDataSink> sink, kx::P<CNetRequest::Buffer> failures)
    : m_sink(std::move(sink))
    , m_failures(std::move(failures))
{
}

CS3AnswerSink::~CS3AnswerSink() = default;

int CS3AnswerSink::write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders)
{
    constexpr int firstSuccess = 200;
    constexpr int firstRedirect = 300;
    constexpr size_t most = 1 << 20;
    if (responseCode >= firstSuccess && responseCode < firstRedirect) {
        m_isGiven = true;
        return m_sink->write(data, size, responseCode, responseHeaders);
    }
    const size_t room = most - std::min(most, m_failures->getSize());
    m_failures->append(data, std::min(room, static_cast<size_t>(size)));
    return size;
}

} // namespace norla
