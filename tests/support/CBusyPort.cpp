#include "tests/support/CBusyPort.h"

#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <sys/socket.h>

namespace support {

CBusyPort::CBusyPort()
    : m_listener(bindToLoopback())
{
    checked(listen(m_listener.get(), 0), "listen on 127.0.0.1"); // with room for one, which nobody ever takes out
    m_waiting = connectToLoopback(portOf(m_listener.get()));
}

unsigned short CBusyPort::getPort() const
{
    return portOf(m_listener.get());
}

std::string CBusyPort::url(std::string_view path, std::string_view scheme) const
{
    return loopbackURL(scheme, getPort(), path);
}

} // namespace support
