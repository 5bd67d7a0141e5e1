#pragma once

#include "tests/support/CChildProcess.h"
#include "tests/support/CProcessRun.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace live {

/// @param settings whose first argument is the name of the example
/// @return the same with its file, and with the libraries of this process
inline support::CProcessRun::CSettings prepared(support::CProcessRun::CSettings settings)
{
    settings.arguments.front() = NORLA_EXAMPLES_DIR "/" + settings.arguments.front();
    const std::vector<std::string> libraryPath = support::inheritedLibraryPath();
    settings.environment.insert(settings.environment.end(), libraryPath.begin(), libraryPath.end());
    return settings;
}

/// Runs an example program. It runs under valgrind when NORLA_VALGRIND is set; what that finds shows as an exit status
/// of 99.
/// @param settings whose first argument is the name of the example
inline support::CProcessRun run(const support::CProcessRun::CSettings& given)
{
    support::CProcessRun::CSettings settings = prepared(given);
    std::vector<std::string>& command = settings.arguments;
    if (std::getenv("NORLA_VALGRIND"))
        command.insert(command.begin(),
            {"valgrind", "--quiet", "--leak-check=full", "--error-exitcode=99",
                "--suppressions=" NORLA_VALGRIND_SUPPRESSIONS});
    return support::CProcessRun(settings);
}

/// The same without valgrind, which takes a second to begin: for what ends before there is anything to transfer.
inline support::CProcessRun runLightly(
    const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {})
{
    return support::CProcessRun(prepared({.arguments = arguments, .environment = environment}));
}

/// Runs an example by a shell, without valgrind.
/// @param redirection as it stands behind a command of the shell
inline support::CProcessRun runRedirected(const std::vector<std::string>& arguments, const std::string& redirection,
    const std::vector<std::string>& environment = {})
{
    const auto example = prepared({.arguments = arguments, .environment = environment});
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" " + redirection, "sh"};
    command.insert(command.end(), example.arguments.begin(), example.arguments.end());
    return support::CProcessRun({.arguments = command, .environment = example.environment});
}

inline support::CProcessRun run(const std::vector<std::string>& arguments,
    support::CProcessRun::Terminal terminal = support::CProcessRun::Terminal::None)
{
    return run({.arguments = arguments, .terminal = terminal});
}

/// As long as it lives, this process and the programs that it starts do that with a signal, whatever was inherited: a
/// shell starts what runs in the background with SIGINT ignored, and nohup does so with SIGHUP.
class CSignalDisposition {
public:
    CSignalDisposition(int number, void (*handler)(int))
        : m_number(number)
        , m_before(std::signal(number, handler))
    {
    }
    CSignalDisposition(const CSignalDisposition&) = delete;
    CSignalDisposition& operator=(const CSignalDisposition&) = delete;
    ~CSignalDisposition() { std::signal(m_number, m_before); }

private:
    const int m_number;
    void (*const m_before)(int);
};

inline std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
}

} // namespace live
