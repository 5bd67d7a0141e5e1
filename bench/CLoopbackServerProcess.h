#pragma once

#include <string>
#include <sys/types.h>

namespace bench {

/// A CLoopbackServer in a child process, so that all of the own process's time is the client's. It ends with the
/// process that made it. To be made before other threads are: a child process has none of them.
class CLoopbackServerProcess {
public:
    /// Blocks until it serves.
    /// @param downloadSize bytes that GET /down answers
    /// @throws std::system_error if there is no process for it
    explicit CLoopbackServerProcess(long long downloadSize);
    CLoopbackServerProcess(const CLoopbackServerProcess&) = delete;
    CLoopbackServerProcess& operator=(const CLoopbackServerProcess&) = delete;
    ~CLoopbackServerProcess();

    std::string url(const std::string& path) const;

private:
    [[noreturn]] static void serve(long long downloadSize, int pipe);

    pid_t m_process;
    std::string m_root;
};

} // namespace bench
