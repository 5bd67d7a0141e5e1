#include "tests/support/CScriptedConnection.h"

#include "tests/support/CPlainChannel.h"
#include "tests/support/CTLSChannel.h"
#include "tests/support/peerQueue.h"
#include "tests/support/systemError.h"

#include <algorithm>
#include <array>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

namespace support {

using namespace std::chrono_literals;

namespace {

constexpr auto stepLimit = 10s;
constexpr auto pieceLimit = 200ms;

} // namespace

CScriptedConnection::CScriptedConnection(CDescriptor socket, int stopDescriptor)
    : m_socket(std::move(socket))
    , m_stopDescriptor(stopDescriptor)
    , m_channel(std::make_unique<CPlainChannel>(m_socket.get()))
{
    const int on = 1;
    checked(setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
    restartLimit();
}

void CScriptedConnection::readUntil(std::string_view terminator)
{
    restartLimit();
    size_t found = unconsumed().find(terminator);
    while (found == std::string_view::npos) {
        const size_t searched = unconsumed().size();
        readMoreOfStep();
        found = unconsumed().find(terminator, searched - std::min(searched, terminator.size()));
    }
    m_consumed += found + terminator.size();
}

void CScriptedConnection::readBytes(size_t count)
{
    restartLimit();
    while (unconsumed().size() < count)
        readMoreOfStep();
    m_consumed += count;
}

void CScriptedConnection::readToEnd()
{
    restartLimit();
    while (readMore())
        continue;
    m_consumed += unconsumed().size();
}

void CScriptedConnection::send(std::string_view bytes)
{
    restartLimit();
    while (!bytes.empty()) {
        const CAttempt attempt = finish([&] { return channel().write(bytes); });
        if (attempt.isEnded)
            throw std::runtime_error(
                "the peer closed the connection, " + std::to_string(bytes.size()) + " bytes were not sent");
        bytes.remove_prefix(attempt.count);
    }
}

void CScriptedConnection::sendPieces(const std::vector<std::string>& pieces)
{
    for (const std::string& piece : pieces) {
        send(piece);
        waitUntilPeerHasRead();
    }
}

void CScriptedConnection::sendRepeated(std::string_view block, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        send(block);
}

void CScriptedConnection::sendAndClose(std::string_view bytes)
{
    const int on = 1;
    checked(setsockopt(openSocket(), IPPROTO_TCP, TCP_CORK, &on, sizeof on), "TCP_CORK"); // until there is the end
    send(bytes);
    close();
}

void CScriptedConnection::stall()
{
    waitUntil(POLLRDHUP, CClock::time_point::max());
}

void CScriptedConnection::waitFor(const std::shared_future<void>& gate)
{
    restartLimit();
    while (gate.wait_for(0s) != std::future_status::ready) {
        if (CClock::now() >= m_deadline)
            throw std::runtime_error("the gate was not opened within 10 s");
        // No event is asked for: this waits for the gate's next turn or the server's end.
        waitUntil(0, CClock::now() + 2ms);
    }
}

void CScriptedConnection::startTLS(const std::filesystem::path& certificateFile, const std::filesystem::path& keyFile)
{
    restartLimit();
    if (!unconsumed().empty())
        throw std::runtime_error(std::to_string(unconsumed().size()) + " bytes were sent before the TLS handshake");
    auto tls = std::make_unique<CTLSChannel>(openSocket(), certificateFile, keyFile);
    if (finish([&] { return tls->shakeHands(); }).isEnded)
        throw std::runtime_error("the peer closed the connection during the TLS handshake");
    m_channel = std::move(tls);
    m_isTLS = true;
}

void CScriptedConnection::reset()
{
    const linger none{.l_onoff = 1, .l_linger = 0};
    checked(setsockopt(openSocket(), SOL_SOCKET, SO_LINGER, &none, sizeof none), "SO_LINGER");
    closeHard();
}

void CScriptedConnection::close()
{
    if (!m_socket || m_isWriteSideClosed)
        return;
    restartLimit();
    m_isWriteSideClosed = true;
    finish([&] { return channel().sayGoodbye(); });
    if (shutdown(m_socket.get(), SHUT_WR) == -1 && errno != ENOTCONN)
        throwSystemError("shutdown");
}

void CScriptedConnection::closeTLS()
{
    if (!m_isTLS)
        throw std::runtime_error("the connection does not use TLS");
    close();
}

void CScriptedConnection::closeHard()
{
    m_channel.reset();
    m_socket.close();
}

bool CScriptedConnection::drain(std::chrono::milliseconds quiet)
{
    const auto end = CClock::now() + stepLimit;
    while (m_socket && CClock::now() < end) {
        const CAttempt attempt = readOnce();
        if (attempt.isEnded)
            return true;
        if (attempt.waitFor != 0 && !waitUntil(attempt.waitFor, std::min(end, CClock::now() + quiet)))
            return false;
    }
    return !m_socket;
}

std::string CScriptedConnection::received() const
{
    const std::lock_guard lock(m_mutex);
    return m_received;
}

IByteChannel& CScriptedConnection::channel()
{
    openSocket();
    return *m_channel;
}

CAttempt CScriptedConnection::readOnce()
{
    std::array<char, 65536> block;
    const CAttempt attempt = channel().read(block);
    const std::lock_guard lock(m_mutex);
    m_received.append(block.data(), attempt.count);
    return attempt;
}

/// @return false at the end of the stream
bool CScriptedConnection::readMore()
{
    return !finish([this] { return readOnce(); }).isEnded;
}

void CScriptedConnection::readMoreOfStep()
{
    if (!readMore())
        throw std::runtime_error(
            "the peer closed the connection after " + std::to_string(unconsumed().size()) + " bytes of this step");
}

/// What was read and no step has asked for yet. Only the script's thread changes m_received, so that it may look
/// without the lock.
std::string_view CScriptedConnection::unconsumed() const
{
    return std::string_view(m_received).substr(m_consumed);
}

/// Repeats the attempt, waiting between, until there is nothing more to wait for.
CAttempt CScriptedConnection::finish(const std::function<CAttempt()>& attempt)
{
    while (true) {
        const CAttempt result = attempt();
        if (result.waitFor == 0) {
            restartLimit();
            return result;
        }
        wait(result.waitFor);
    }
}

void CScriptedConnection::wait(short event)
{
    if (!waitUntil(event, m_deadline))
        throw std::runtime_error("not one byte moved for 10 s");
}

/// @return false when the time is up
bool CScriptedConnection::waitUntil(short event, CClock::time_point deadline)
{
    std::array<pollfd, 2> watched{pollfd{openSocket(), event, 0}, pollfd{m_stopDescriptor, POLLIN, 0}};
    if (event == 0)
        watched[0].fd = -1;
    while (true) {
        const auto now = CClock::now();
        const auto timeLeft = std::clamp<CClock::duration>(deadline - now, 0s, 1s);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(timeLeft);
        if (poll(watched.data(), watched.size(), static_cast<int>(left.count())) == -1 && errno != EINTR)
            throwSystemError("poll");
        if (watched[1].revents != 0)
            throw CStopped();
        if (watched[0].revents != 0)
            return true;
        if (now >= deadline)
            return false;
    }
}

/// Bounded: a peer that reads nothing, for example because it is paused, gets the next piece all the same.
void CScriptedConnection::waitUntilPeerHasRead()
{
    const auto end = CClock::now() + pieceLimit;
    while (!hasPeerReadEverything(openSocket()) && CClock::now() < end)
        waitUntil(0, CClock::now() + 1ms);
}

void CScriptedConnection::restartLimit()
{
    m_deadline = CClock::now() + stepLimit;
}

int CScriptedConnection::openSocket() const
{
    if (!m_socket)
        throw std::runtime_error("the script has closed the connection before");
    return m_socket.get();
}

} // namespace support
