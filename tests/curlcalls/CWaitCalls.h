#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

/// Watches how long the library waits, as long as the object lives: its calls to select(), epoll_wait() and
/// nanosleep(). One at a time. Interposes these functions as CCurlCalls does. Any thread.
class CWaitCalls {
public:
    CWaitCalls();
    CWaitCalls(const CWaitCalls&) = delete;
    CWaitCalls& operator=(const CWaitCalls&) = delete;
    ~CWaitCalls();

    /// The waits since the construction or the last call, in order: "select 250" and "sleep 100", in milliseconds. They
    /// are not waited for, but looked at only. Among them "epoll 250 thread", with the thread's name and -1 for no
    /// limit, as the waits begin; these are waited for.
    std::vector<std::string> takeWaits();

    /// From now on the calling thread's waits for a signal (a condition variable) with a limit count too, as "signal
    /// 250". These are waited for.
    void noteSignals();

    /// For the interposed functions alone.
    void add(const std::string& wait);
    bool notesSignalsOf(std::thread::id thread);

private:
    std::mutex m_mutex;
    std::thread::id m_noted;
    std::vector<std::string> m_waits;
};

} // namespace support
