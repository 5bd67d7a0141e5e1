#include "norla/files/CFileQueueWork.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"
#include "kx/threads/processGeneration.h"
#include "norla/pool/CAllSignalsBlock.h"

#include <pthread.h>
#include <system_error>
#include <utility>

namespace norla {

namespace {

void reportThrown(const std::function<void()>& call)
{
    try {
        call();
    } catch (const std::exception& error) {
        kx::logError(error, "What is told of the end of a file has thrown", kx::String());
    } catch (...) {
        kx::logError(
            kx::CError("It is no std::exception."), "What is told of the end of a file has thrown", kx::String());
    }
}

} // namespace

CFileQueueWork::CFileQueueWork(const CFileQueueOptions& options)
    : m_options(options)
    , m_process(kx::processGeneration())
{
    m_rate.add(Clock::now(), 0);
}

CFileQueueWork::~CFileQueueWork()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    cancel();
    for (std::thread& thread : m_threads)
        thread.join();
}

bool CFileQueueWork::isOfThisProcess() const noexcept
{
    return kx::processGeneration() == m_process;
}

/// In a child of it nobody would run or end anything, and a lock may be held for ever.
void CFileQueueWork::requireOwnProcess() const
{
    if (!isOfThisProcess())
        throw kx::CError("In a child process a queue of files runs nothing.");
}

void CFileQueueWork::add(CFileTransfer& file)
{
    requireOwnProcess();
    const std::lock_guard lock(m_mutex);
    if (file.getState() != FileState::Waiting || m_there.contains(&file))
        throw kx::CInvalidArgError("the file has run already, or is in the queue already", "CFileQueue");
    if (m_isStopping) // a thread that is there takes it
        file.cancel();
    else if (static_cast<int>(m_waiting.size()) >= m_freeThreads
        && static_cast<int>(m_threads.size()) < m_options.atOnce)
        startThread();
    const auto place = m_there.insert(&file).first;
    try {
        m_waiting.emplace_back(&file);
    } catch (const std::bad_alloc&) {
        m_there.erase(place);
        throw;
    }
    m_mayRun.notify_one();
}

/// Those that there are can do it alone, only slower.
void CFileQueueWork::startThread()
{
    const CAllSignalsBlock block; // inherited
    try {
        m_threads.emplace_back([this] {
            pthread_setname_np(pthread_self(), "norla.files");
            runFiles();
        });
        ++m_freeThreads;
    } catch (const std::system_error& error) {
        if (m_threads.empty())
            throw kx::CError("The queue's thread cannot be started: " + kx::String::fromLatin1(error.what()) + ".");
    }
}

void CFileQueueWork::runFiles()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_mayRun.wait(
            lock, [this] { return (!m_waiting.empty() && !m_isPaused) || (m_waiting.empty() && m_isStopping); });
        if (m_waiting.empty())
            return;
        kx::P<CFileTransfer> file = m_waiting.front();
        m_waiting.pop_front();
        const auto place = m_running.insert(m_running.end(), file);
        --m_freeThreads;
        lock.unlock();
        try {
            file->run();
        } catch (...) { // the file knows it
        }
        tellEnd(file);
        lock.lock();
        noteEnd(place);
        lock.unlock();
        file = nullptr; // what goes with it may use the queue
        lock.lock();
        noteLetGo();
    }
}

void CFileQueueWork::tellEnd(const kx::P<CFileTransfer>& file)
{
    if (!m_options.onEnd)
        return;
    const auto tell = [onEnd = m_options.onEnd, file] { reportThrown([&] { onEnd(*file); }); };
    if (m_options.executor) {
        reportThrown([&] { m_options.executor->execute(tell); });
        return;
    }
    const std::lock_guard lock(m_telling);
    tell();
}

void CFileQueueWork::noteEnd(Running::iterator place)
{
    const FileState state = (*place)->getState();
    const CFileProgress progress = (*place)->getProgress();
    m_endedMoved += progress.moved;
    if (state == FileState::Succeeded) {
        ++m_ended.succeeded;
        m_ended.doneBytes += progress.done;
    } else if (state == FileState::Cancelled) {
        ++m_ended.cancelled;
    } else {
        ++m_ended.failed;
    }
    m_there.erase(place->get());
    m_running.erase(place);
    ++m_leaving;
}

void CFileQueueWork::noteLetGo()
{
    --m_leaving;
    ++m_freeThreads;
    if (isIdle()) // nobody waits for less
        m_allEnded.notify_all();
}

void CFileQueueWork::cancel()
{
    const std::lock_guard lock(m_mutex);
    for (const auto& file : m_waiting)
        file->cancel();
    for (const auto& file : m_running)
        file->cancel();
    m_isPaused = false;
    m_mayRun.notify_all();
}

void CFileQueueWork::pause()
{
    const std::lock_guard lock(m_mutex);
    if (m_isStopping) // onEnd may ask for it, and nobody resumes
        return;
    m_isPaused = true;
    for (const auto& file : m_running)
        file->pause();
}

void CFileQueueWork::resume()
{
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_isPaused, false)) {
        m_rate.forget(); // the pause was no slow transfer
        m_rate.add(Clock::now(), movedBytes());
    }
    for (const auto& file : m_running)
        file->resume();
    m_mayRun.notify_all();
}

/// Of all files, the ended ones too; under the lock.
long long CFileQueueWork::movedBytes() const
{
    long long moved = m_endedMoved;
    for (const auto& file : m_running)
        moved += file->getProgress().moved;
    return moved;
}

bool CFileQueueWork::waitUntil(std::optional<Clock::time_point> moment)
{
    requireOwnProcess();
    std::unique_lock lock(m_mutex);
    if (moment)
        return m_allEnded.wait_until(lock, *moment, [this] { return isIdle(); });
    m_allEnded.wait(lock, [this] { return isIdle(); });
    return true;
}

CFileQueueSummary CFileQueueWork::getSummary()
{
    const std::lock_guard lock(m_mutex);
    CFileQueueSummary summary = m_ended;
    summary.waiting = static_cast<int>(m_waiting.size());
    summary.running = static_cast<int>(m_running.size());
    long long total = m_ended.doneBytes;
    bool isTotalKnown = m_waiting.empty();
    for (const auto& file : m_running) {
        const CFileProgress progress = file->getProgress();
        summary.doneBytes += progress.done;
        total += progress.total.value_or(0);
        isTotalKnown = isTotalKnown && progress.total;
    }
    if (isTotalKnown)
        summary.totalBytes = total;
    m_rate.add(Clock::now(), movedBytes());
    if (!m_isPaused && !m_running.empty())
        summary.bytesPerSecond = m_rate.bytesPerSecond(Clock::now());
    if (isTotalKnown && summary.bytesPerSecond > 0)
        summary.secondsLeft = static_cast<double>(total - summary.doneBytes) / summary.bytesPerSecond;
    return summary;
}

} // namespace norla
