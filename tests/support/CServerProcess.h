#pragma once

#include "tests/support/CChildProcess.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A server program that runs as long as the object lives; its standard output and errors go to a log file. Used by one
/// thread at a time, see CChildProcess for the thread that starts it.
class CServerProcess {
public:
    struct CSettings {
        /// As in CChildProcess::CSettings.
        std::vector<std::string> arguments;
        std::string package;
        /// Made anew.
        std::filesystem::path logFile;
        std::vector<std::string> environment = {};
        std::vector<int> inheritedDescriptors = {};
        /// How long it may take to end when it is asked to.
        std::chrono::milliseconds stopLimit = std::chrono::seconds(5);
    };

    /// @throws std::runtime_error naming the program, and its package, if it does not exist; std::system_error
    explicit CServerProcess(const CSettings& settings);
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;

    /// As stop().
    ~CServerProcess();

    pid_t getPid() const;

    /// @return what the program has written so far
    std::string log() const;

    /// Blocks until the port of 127.0.0.1 accepts a connection, which is closed at once.
    /// @throws std::runtime_error with the program's log if it has ended or 15 seconds have passed
    void waitUntilConnectable(unsigned short port);

    /// Blocks until the log contains the text.
    /// @throws std::runtime_error as above
    void waitUntilLogged(std::string_view text);

    /// Blocks until the condition holds, which is looked at every 20 ms.
    /// @param failure what the error says that the program did, such as "accepted no connection"
    /// @throws std::runtime_error as above
    void waitUntil(const std::function<bool()>& isReady, const std::string& failure);

    /// Asks the program and what it has started to end, kills what is left when the stop limit is over. Nothing happens
    /// the second time.
    void stop();

    /// Kills the program and what it has started (SIGKILL). Nothing happens if it has ended.
    void kill();

    /// Starts a program that cannot be given a listening socket: on a port that was free a moment ago, and on another
    /// one if somebody else was faster.
    /// @param settingsFor the program's settings for a port
    /// @param readyText what it logs once it listens
    /// @param port receives the port
    /// @throws std::runtime_error if it does not start, after five attempts
    static std::unique_ptr<CServerProcess> startOnFreePort(
        const std::function<CSettings(unsigned short port)>& settingsFor, std::string_view readyText,
        unsigned short& port);

private:
    [[noreturn]] void fail(const std::string& what) const;

    CSettings m_settings;
    CChildProcess m_process;
};

} // namespace support
