#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace support {

/// One run of a program from start to end, and what came out of it.
class CProcessRun {
public:
    /// Which standard streams of the program are terminals (80 columns, raw: bytes come as they were written) and not
    /// pipes.
    enum class Terminal { None, Output, Errors, Both };

    struct CSettings {
        /// The program and its arguments. A program without "/" is looked for in PATH, /usr/sbin and /sbin.
        std::vector<std::string> arguments;
        /// The Debian package that the error names if there is no such program.
        std::string package = {};
        /// What the program reads from its standard input, which is a file.
        std::string input = {};
        /// As in CChildProcess::CSettings.
        std::vector<std::string> environment = {};
        Terminal terminal = Terminal::None;
        /// How long the run may take.
        std::chrono::milliseconds limit = std::chrono::minutes(3);
    };

    /// Blocks until the program has ended and has closed its output.
    /// @throws std::runtime_error if there is no such program, or if the time is up, with the output so far; the
    /// program, and what it has started, is killed then
    explicit CProcessRun(const CSettings& settings);
    explicit CProcessRun(const std::vector<std::string>& arguments);

    /// @return the exit status, 128 and the signal's number if a signal ended the program
    int exitStatus() const;

    /// @return what the program has written to its standard output
    const std::string& output() const;

    /// @return what the program has written to its standard error output
    const std::string& errors() const;

private:
    int m_exitStatus = 0;
    std::string m_output;
    std::string m_errors;
};

} // namespace support
