#include "tests/support/CPlainChannel.h"

#include "tests/support/systemError.h"

#include <poll.h>
#include <sys/socket.h>

namespace support {

namespace {

CAttempt failedAttempt(short event, const char* what)
{
    if (errno == EAGAIN || errno == EINTR)
        return {.waitFor = event};
    if (errno == ECONNRESET || errno == EPIPE)
        return {.isEnded = true};
    throwSystemError(what);
}

} // namespace

CPlainChannel::CPlainChannel(int socket) noexcept
    : m_socket(socket)
{
}

CAttempt CPlainChannel::read(std::span<char> block)
{
    const ssize_t count = recv(m_socket, block.data(), block.size(), 0);
    if (count < 0)
        return failedAttempt(POLLIN, "recv");
    return {.count = static_cast<size_t>(count), .isEnded = count == 0};
}

CAttempt CPlainChannel::write(std::string_view bytes)
{
    const ssize_t count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0)
        return failedAttempt(POLLOUT, "send");
    return {.count = static_cast<size_t>(count)};
}

CAttempt CPlainChannel::sayGoodbye()
{
    return {};
}

} // namespace support
