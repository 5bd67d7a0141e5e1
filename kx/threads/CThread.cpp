#include "kx/threads/CThread.h"

#include "kx/base/CError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "kx/base/systemErrorText.h"
#include "kx/log/log.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <pthread.h>
#include <system_error>

namespace kx {

namespace {

constexpr size_t systemNameLimit = 15;

void nameCurrentThread(const String& name)
{
    std::string shown = name.toDisplayUTF8();
    shown.resize(std::min(shown.size(), systemNameLimit));
    // Only a name too long could fail; a thread works without one.
    static_cast<void>(pthread_setname_np(pthread_self(), shown.c_str()));
}

class CUnknownException : public std::exception {
public:
    const char* what() const noexcept override { return "something that is no std::exception"; }
};

void logLeftError(const CThread& thread, const char* text, const std::exception& error) noexcept
{
    try {
        logError(error, String::fromLatin1(text) + " '" + thread.getName() + "'.", "");
    } catch (...) { // no memory, or a log handler that throws
        std::fputs("An error of a thread could not be logged.\n", stderr);
    }
}

// A thread has nobody to throw at: what was let out would end the process.
template <typename TStep>
void runLogged(const CThread& thread, const char* text, TStep step) noexcept
{
    try {
        step();
    } catch (const std::exception& error) {
        logLeftError(thread, text, error);
    } catch (...) {
        logLeftError(thread, text, CUnknownException());
    }
}

} // namespace

CThread::CThread(IRunnable* runnable, bool stopAtEnd)
    : m_runnable(runnable)
    , m_stopAtEnd(stopAtEnd)
{
}

CThread::~CThread()
{
    try {
        if (m_stopAtEnd)
            CThread::signalStop(); // an override is gone already
        joinIfStarted([] {});
    } catch (const std::exception& error) {
        onExceptionInDestructorIgnored("kx::CThread", error, true);
    }
    if (m_thread.joinable())
        endAfterDestructionOnItself();
}

// The body cannot go on without its object, and it cannot be ended from here either.
void CThread::endAfterDestructionOnItself() const noexcept
{
    logErrorQuietly(CError("The last reference to a thread's object must not be dropped on that thread."),
        "The thread '" + m_name + "' has destroyed its own object: the process ends.");
    std::terminate();
}

void CThread::setName(const String& name)
{
    const std::lock_guard lock(m_mutex);
    m_name = name;
}

String CThread::getName() const
{
    const std::lock_guard lock(m_mutex);
    return m_name;
}

void CThread::start()
{
    std::unique_lock lock(m_mutex);
    m_joined.wait(lock, [this] { return m_alive || !m_isJoining; });
    if (m_alive)
        throw CError("The thread '" + m_name + "' is running already.");
    if (m_thread.joinable())
        m_thread.join();
    m_stopSignalled = false;
    m_alive = true;
    try {
        m_thread = std::thread([this] { runGuarded(); });
    } catch (const std::system_error& error) {
        m_alive = false;
        throw CError("The thread '" + m_name + "' cannot be started: " + systemErrorText(error.code().value()) + ".");
    } catch (...) {
        m_alive = false;
        throw;
    }
    m_id = m_thread.get_id();
}

void CThread::stop(bool wait)
{
    signalStop();
    if (wait)
        joinIfStarted([this] { signalStop(); }); // again: a start meanwhile has taken the first signal away
}

void CThread::signalStop()
{
    m_stopSignalled = true;
}

bool CThread::checkContinue() const
{
    return !m_stopSignalled;
}

bool CThread::isAlive() const
{
    return m_alive;
}

CThread::ID CThread::getID() const
{
    const std::lock_guard lock(m_mutex);
    return m_id;
}

CThread::ID CThread::getCurrentID() noexcept
{
    return std::this_thread::get_id();
}

void CThread::sleep(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void CThread::runImpl()
{
    if (m_runnable)
        m_runnable->run(*this);
}

void CThread::onRunFinished()
{
}

void CThread::runGuarded() noexcept
{
    // Having the name waits for start() to finish, so that the body finds its own ID.
    runLogged(*this, "The name of a thread cannot be shown:", [this] { nameCurrentThread(getName()); });
    runLogged(*this, "An error has ended the thread", [this] { runImpl(); });
    runLogged(*this, "An error has left the end of the thread", [this] { onRunFinished(); });
    m_alive = false;
}

// The thread object is taken out of the lock's reach before the join, because the body may ask for its ID.
void CThread::joinIfStarted(const std::function<void()>& tell)
{
    if (getID() == getCurrentID())
        return;
    std::unique_lock lock(m_mutex);
    m_joined.wait(lock, [this] { return !m_isJoining; }); // whoever comes second waits for the end too
    std::thread ended;
    ended.swap(m_thread);
    if (!ended.joinable())
        return;
    m_isJoining = true;
    lock.unlock();
    tell();
    ended.join();
    lock.lock();
    m_isJoining = false;
    m_joined.notify_all();
}

} // namespace kx
