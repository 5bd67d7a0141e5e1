#include "norla/core/CFileSource.h"

namespace norla {

CFileSource::CFileSource(const CNetRequest::Path& path)
    : m_file(kx::newObj<kx::CInputFile>(path))
{
}

CFileSource::~CFileSource() = default;

int CFileSource::read(unsigned char* buffer, int size, const CNetRequest::HeaderMap& /*responseHeaders*/)
{
    return m_file->read(buffer, size);
}

long long CFileSource::getLength()
{
    return m_file->getLength();
}

void CFileSource::seek(long long position)
{
    m_file->seek(position);
}

long long CFileSource::getPosition()
{
    return m_file->getPosition();
}

} // namespace norla
