#pragma once

#include "tests/support/CDescriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/// A running program in a process group of its own, with everything it starts in that group. The destructor ends them
/// all; they end too when this process ends in whatever way. Used by one thread at a time; the thread that starts it
/// must not end before it, because the kernel kills the program then.
class CChildProcess {
public:
    struct CSettings {
        /// The program and its arguments. A program without "/" is looked for in PATH, /usr/sbin and /sbin.
        std::vector<std::string> arguments;
        /// The Debian package that the error names if there is no such program.
        std::string package = {};
        /// "NAME=value", in addition to our own environment or instead of a variable of it. LD_LIBRARY_PATH is not
        /// passed on by itself: other people's programs keep their own libraries when the tests run with a libcurl of
        /// another version, see inheritedLibraryPath().
        std::vector<std::string> environment = {};
        /// Descriptors that the program gets under the same numbers. It gets no others but its standard streams.
        std::vector<int> inheritedDescriptors = {};
        /// The program's standard streams; -1 is /dev/null.
        int input = -1;
        int output = -1;
        int errors = -1;
    };

    /// @throws std::runtime_error naming the program, and its package, if it does not exist; std::system_error
    explicit CChildProcess(const CSettings& settings);
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    /// Kills the group.
    ~CChildProcess();

    /// Also the number of its process group.
    pid_t getPid() const;

    /// Blocks until the program itself has ended, at most so long.
    /// @return whether it has ended
    bool waitForEnd(std::chrono::milliseconds limit);

    /// Asks the group to end (SIGTERM), and kills what is left of it when the program has ended or the time is up.
    void stop(std::chrono::milliseconds limit);

    /// Kills the group (SIGKILL). Nothing happens if it has ended.
    void kill();

    /// @return the exit status, 128 and the signal's number if a signal ended it; nothing as long as it runs
    std::optional<int> exitStatus() const;

private:
    void reap();

    pid_t m_pid;
    CDescriptor m_processDescriptor;
    CDescriptor m_lifeline;
    pid_t m_keeper;
    std::optional<int> m_exitStatus;
};

/// @return LD_LIBRARY_PATH for the environment of a program that is to use the same libraries as this process; nothing
/// if it is not set
std::vector<std::string> inheritedLibraryPath();

} // namespace support
