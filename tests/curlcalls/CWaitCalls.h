#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace support {

/// Watches how long the library waits, as long as the object lives: its calls to select() and nanosleep(). One at a time.
/// Interposes these functions as CCurlCalls does. Any thread.
class CWaitCalls {
public:
    CWaitCalls();
    CWaitCalls(const CWaitCalls&) = delete;
    CWaitCalls& operator=(const CWaitCalls&) = delete;
    ~CWaitCalls();

    /// The waits since the construction or the last call, in order: "select 250" and "sleep 100", in milliseconds. They are
    /// not waited for, but looked at only.
    std::vector<std::string> takeWaits();

    /// For the interposed functions alone.
    void add(const std::string& wait);

private:
    std::mutex m_mutex;
    std::vector<std::string> m_waits;
};

} // namespace support
