#pragma once

#include "norla/files/CFileQueue.h"
#include "norla/files/CRateMeter.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_set>
#include <vector>

namespace norla {

/// What stands behind a queue of files: who waits, who runs, and the threads. Any thread.
class CFileQueueWork {
public:
    using Clock = CRateMeter::Clock;

    explicit CFileQueueWork(const CFileQueueOptions& options);
    CFileQueueWork(const CFileQueueWork&) = delete;
    CFileQueueWork& operator=(const CFileQueueWork&) = delete;

    /// Not in a child process, which lets it stay as it is.
    ~CFileQueueWork();

    /// Whether it is not that of a parent, whose threads are not here.
    bool isOfThisProcess() const noexcept;

    // As the operations of CFileQueue.
    void add(CFileTransfer& file);
    void cancel();
    void pause();
    void resume();
    bool waitUntil(std::optional<Clock::time_point> moment);
    CFileQueueSummary getSummary();

private:
    using Running = std::list<kx::P<CFileTransfer>>;

    void requireOwnProcess() const;
    void startThread();
    void runFiles();
    bool isIdle() const noexcept { return m_waiting.empty() && m_running.empty() && m_leaving == 0; }
    void tellEnd(const kx::P<CFileTransfer>& file);
    void noteEnd(Running::iterator place);
    void noteLetGo();
    long long movedBytes() const;

    const CFileQueueOptions m_options;
    const unsigned int m_process; // in a child there are no threads
    std::mutex m_mutex;
    std::condition_variable m_mayRun;
    std::condition_variable m_allEnded;
    std::deque<kx::P<CFileTransfer>> m_waiting;
    std::unordered_set<const CFileTransfer*> m_there; // waiting or running
    Running m_running;
    int m_leaving = 0;         // files that have ended, and that their threads still keep
    CFileQueueSummary m_ended; // counts and bytes of those that have ended
    long long m_endedMoved = 0;
    CRateMeter m_rate;
    std::vector<std::thread> m_threads;
    int m_freeThreads = 0;
    bool m_isPaused = false;
    bool m_isStopping = false;
    std::mutex m_telling; // held while onEnd runs on a thread of ours
};

} // namespace norla
