#include "tests/support/CScriptedServer.h"

#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <array>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <utility>

namespace support {

using namespace std::chrono_literals;

namespace {

constexpr auto joinLimit = 20s;
constexpr auto quietTime = 100ms;

/// The threads that this one starts inherit it. OpenSSL writes without MSG_NOSIGNAL.
void blockSigPipe()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

} // namespace

CScriptedServer::CPlay::CPlay(CDescriptor socket, int stopDescriptor, CScript* toPlay, size_t number)
    : connection(std::move(socket), stopDescriptor)
    , script(toPlay)
    , index(number)
{
}

CScriptedServer::CScriptedServer()
    : m_listener(listenOnLoopback())
    , m_stop(checked(eventfd(0, EFD_CLOEXEC), "eventfd"))
    , m_acceptor([this] { acceptConnections(); })
{
}

CScriptedServer::~CScriptedServer()
{
    eventfd_write(m_stop.get(), 1);
    m_acceptor.join();
    for (const auto& play : m_plays) {
        if (play->thread.joinable())
            play->thread.join();
    }
}

unsigned short CScriptedServer::getPort() const
{
    return portOf(m_listener.get());
}

std::string CScriptedServer::url(std::string_view path, std::string_view scheme) const
{
    return loopbackURL(scheme, getPort(), path);
}

CScript& CScriptedServer::onConnection()
{
    const std::lock_guard lock(m_mutex);
    return m_scripts.emplace_back();
}

std::string CScriptedServer::received(size_t connection) const
{
    const std::lock_guard lock(m_mutex);
    return connection < m_plays.size() ? m_plays[connection]->connection.received() : std::string();
}

size_t CScriptedServer::connectionCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_plays.size();
}

std::vector<std::string> CScriptedServer::problems() const
{
    const std::lock_guard lock(m_mutex);
    return m_problems;
}

void CScriptedServer::join()
{
    std::unique_lock lock(m_mutex);
    if (m_played.wait_for(lock, joinLimit, [this] { return m_playedScripts == m_scripts.size(); }))
        return;
    m_problems.push_back("only " + std::to_string(m_playedScripts) + " of " + std::to_string(m_scripts.size())
        + " scripts were played to their end within 20 s, by " + std::to_string(m_plays.size()) + " connections");
}

void CScriptedServer::acceptConnections()
{
    blockSigPipe();
    while (waitForConnection()) {
        CDescriptor socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        try {
            if (socket)
                startPlaying(std::move(socket));
        } catch (const std::exception& error) {
            addProblem(std::string("a connection could not be played: ") + error.what());
        }
    }
}

/// @return false when the server is to stop
bool CScriptedServer::waitForConnection() const
{
    std::array<pollfd, 2> watched{pollfd{m_listener.get(), POLLIN, 0}, pollfd{m_stop.get(), POLLIN, 0}};
    while (poll(watched.data(), watched.size(), -1) == -1 && errno == EINTR)
        continue;
    return watched[1].revents == 0;
}

void CScriptedServer::startPlaying(CDescriptor socket)
{
    const std::lock_guard lock(m_mutex);
    const bool hasScript = m_assignedScripts < m_scripts.size();
    CScript* const script = hasScript ? &m_scripts[m_assignedScripts++] : nullptr;
    CPlay& started
        = *m_plays.emplace_back(std::make_unique<CPlay>(std::move(socket), m_stop.get(), script, m_plays.size()));
    if (hasScript) {
        started.thread = std::thread([this, &started] { play(started); });
        return;
    }
    m_problems.push_back("connection " + std::to_string(started.index) + " has no script");
    started.connection.closeHard();
}

void CScriptedServer::play(CPlay& play)
{
    try {
        playSteps(play);
        const bool isEnded = drain(play, quietTime);
        markPlayed();
        if (!isEnded)
            drain(play, 10s);
        play.connection.closeHard();
    } catch (const CScriptedConnection::CStopped&) {
        return;
    }
}

void CScriptedServer::playSteps(CPlay& play)
{
    std::string name;
    size_t index = 0;
    try {
        for (; const CScript::CStep* const step = play.script->step(index); ++index) {
            name = step->name;
            step->action(play.connection);
        }
        name = "close";
        play.connection.close();
    } catch (const std::exception& error) {
        addProblem("connection " + std::to_string(play.index) + ", step " + std::to_string(index) + " (" + name
            + "): " + error.what());
        play.connection.closeHard();
    }
}

/// @return whether no more bytes will come
bool CScriptedServer::drain(CPlay& play, std::chrono::milliseconds quiet)
{
    try {
        return play.connection.drain(quiet);
    } catch (const std::exception& error) {
        addProblem("connection " + std::to_string(play.index) + ", after its script: " + error.what());
        return true;
    }
}

void CScriptedServer::markPlayed()
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_playedScripts;
    }
    m_played.notify_all();
}

void CScriptedServer::addProblem(std::string problem)
{
    const std::lock_guard lock(m_mutex);
    m_problems.push_back(std::move(problem));
}

} // namespace support
