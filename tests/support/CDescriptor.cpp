#include "tests/support/CDescriptor.h"

#include <unistd.h>
#include <utility>

namespace support {

CDescriptor::CDescriptor(int descriptor) noexcept
    : m_descriptor(descriptor)
{
}

CDescriptor::CDescriptor(CDescriptor&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

CDescriptor& CDescriptor::operator=(CDescriptor&& other) noexcept
{
    if (this != &other) {
        close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
    }
    return *this;
}

CDescriptor::~CDescriptor()
{
    close();
}

int CDescriptor::get() const noexcept
{
    return m_descriptor;
}

CDescriptor::operator bool() const noexcept
{
    return m_descriptor != -1;
}

void CDescriptor::close() noexcept
{
    if (m_descriptor != -1)
        ::close(std::exchange(m_descriptor, -1));
}

} // namespace support
