#include "tests/support/CRefusedPort.h"

#include "tests/support/loopback.h"

namespace support {

CRefusedPort::CRefusedPort()
    : m_bound(bindToLoopback())
{
}

unsigned short CRefusedPort::getPort() const
{
    return portOf(m_bound.get());
}

std::string CRefusedPort::url(std::string_view path, std::string_view scheme) const
{
    return loopbackURL(scheme, getPort(), path);
}

} // namespace support
