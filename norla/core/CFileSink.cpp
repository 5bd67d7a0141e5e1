#include "norla/core/CFileSink.h"

#include <algorithm>

namespace norla {

CFileSink::CFileSink(CNetRequest& request, const CNetRequest::Path& path)
    : m_file(kx::newObj<kx::COutputFile>(path))
    , m_explanation(request.getDefaultReceiveBuffer())
{
}

CFileSink::~CFileSink() = default;

void CFileSink::begin()
{
    m_file->restart();
}

int CFileSink::write(
    const unsigned char* data, int size, int responseCode, const CNetRequest::HeaderMap& /*responseHeaders*/)
{
    constexpr int firstExplained = 300;
    if (responseCode < firstExplained)
        return m_file->write(data, size);
    constexpr size_t mostExplanation = 64 << 10;
    const size_t room = mostExplanation - std::min(m_explanation->getSize(), mostExplanation);
    m_explanation->append(data, std::min(static_cast<size_t>(size), room));
    return size;
}

} // namespace norla
