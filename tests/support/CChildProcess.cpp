#include "tests/support/CChildProcess.h"

#include "tests/support/systemError.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace support {

namespace {

constexpr char libraryPath[] = "LD_LIBRARY_PATH";

bool isExecutable(const std::string& file)
{
    return access(file.c_str(), X_OK) == 0;
}

/// @return an empty text if there is no such program
std::string findProgram(const std::string& program)
{
    if (program.find('/') != std::string::npos)
        return isExecutable(program) ? program : std::string();
    const char* const path = std::getenv("PATH");
    std::istringstream folders(std::string(path ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (isExecutable(folder + "/" + program))
            return folder + "/" + program;
    }
    return {};
}

std::string existingProgram(const CChildProcess::CSettings& settings)
{
    std::string file = findProgram(settings.arguments.at(0));
    if (!file.empty())
        return file;
    const std::string advice = settings.package.empty() ? "" : ": install the Debian package " + settings.package;
    throw std::runtime_error("there is no program " + settings.arguments[0] + advice);
}

std::string nameOf(const std::string& variable)
{
    return variable.substr(0, variable.find('='));
}

std::vector<std::string> wholeEnvironment(const std::vector<std::string>& additions)
{
    std::vector<std::string> whole = additions;
    for (char** variable = environ; *variable; ++variable) {
        const std::string name = nameOf(*variable);
        if (name == libraryPath)
            continue;
        if (std::none_of(additions.begin(), additions.end(), [&](const auto& text) { return nameOf(text) == name; }))
            whole.emplace_back(*variable);
    }
    return whole;
}

/// Pointers into the texts, and a null at the end.
std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

enum class Lifetime { EndsWithUs, OutlivesUs };

/// Everything that the new process needs between vfork() and exec(), where it may not allocate.
struct CPreparation {
    CPreparation(const CChildProcess::CSettings& settings, Lifetime itsLifetime)
        : file(existingProgram(settings))
        , argumentTexts(settings.arguments)
        , environmentTexts(wholeEnvironment(settings.environment))
        , arguments(pointersTo(argumentTexts))
        , environment(pointersTo(environmentTexts))
        , inherited(settings.inheritedDescriptors)
        , streams{settings.input, settings.output, settings.errors}
        , parent(getpid())
        , lifetime(itsLifetime)
    {
    }

    std::string file;
    std::vector<std::string> argumentTexts;
    std::vector<std::string> environmentTexts;
    std::vector<char*> arguments;
    std::vector<char*> environment;
    std::vector<int> inherited;
    std::array<int, 3> streams;
    pid_t parent;
    Lifetime lifetime;
};

[[noreturn]] void failInChild(const char* what)
{
    const char* const reason = strerrordesc_np(errno);
    for (const char* text : {what, ": ", reason, "\n"}) {
        if (write(STDERR_FILENO, text, std::strlen(text)) == -1)
            break;
    }
    _exit(127);
}

void openStreams(const CPreparation& preparation)
{
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int stream = 0; stream < 3; ++stream) {
        const int given = preparation.streams[static_cast<size_t>(stream)];
        if (dup2(given == -1 ? null : given, stream) == -1)
            failInChild("dup2");
    }
}

/// The program ends with us; its keeper sees our end, and is stopped by SIGKILL alone.
void endOnlyAsItMust(const CPreparation& preparation)
{
    sigset_t blocked;
    if (preparation.lifetime == Lifetime::OutlivesUs) {
        sigfillset(&blocked);
    } else {
        sigemptyset(&blocked);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != preparation.parent)
            _exit(127); // it died before prctl()
    }
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

[[noreturn]] void becomeProgram(const CPreparation& preparation)
{
    setpgid(0, 0);
    endOnlyAsItMust(preparation);
    openStreams(preparation);
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    for (const int descriptor : preparation.inherited) {
        if (fcntl(descriptor, F_SETFD, 0) == -1)
            failInChild("inherited descriptor");
    }
    execve(preparation.file.c_str(), preparation.arguments.data(), preparation.environment.data());
    failInChild(preparation.file.c_str());
}

/// Not fork(): under a sanitizer a process has much memory to copy, and to copy once more when it is written to.
pid_t start(const CPreparation& preparation)
{
    const pid_t pid = checked(vfork(), "vfork");
    if (pid == 0)
        becomeProgram(preparation);
    setpgid(pid, pid); // ThreadSanitizer makes it a fork(): whoever of the two comes first
    return pid;
}

/// A process that kills the group when ours ends: PR_SET_PDEATHSIG reaches the program alone, not what it has started.
std::pair<pid_t, CDescriptor> startKeeper(pid_t group)
{
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    const CDescriptor theirEnd(ends[0]);
    CDescriptor ourEnd(ends[1]);
    const std::string waitAndKill = "read -r end; kill -s KILL -- -" + std::to_string(group);
    const CPreparation keeper({.arguments = {"/bin/sh", "-c", waitAndKill}, .input = ends[0]}, Lifetime::OutlivesUs);
    return {start(keeper), std::move(ourEnd)};
}

/// The header of glibc 2.36's own pidfd_open() does not link in C++.
CDescriptor openProcess(pid_t pid)
{
    return CDescriptor(static_cast<int>(checked(syscall(SYS_pidfd_open, pid, 0), "pidfd_open")));
}

int statusOf(int waitStatus)
{
    return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

/// @return the wait status of a child that has ended or is about to
int reapChild(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR)
        continue;
    return status;
}

} // namespace

CChildProcess::CChildProcess(const CSettings& settings)
    : m_pid(start(CPreparation(settings, Lifetime::EndsWithUs)))
    , m_processDescriptor(openProcess(m_pid))
{
    auto [keeper, lifeline] = startKeeper(m_pid);
    m_keeper = keeper;
    m_lifeline = std::move(lifeline);
}

CChildProcess::~CChildProcess()
{
    kill();
}

pid_t CChildProcess::getPid() const
{
    return m_pid;
}

bool CChildProcess::waitForEnd(std::chrono::milliseconds limit)
{
    if (m_exitStatus)
        return true;
    const auto end = std::chrono::steady_clock::now() + limit;
    pollfd watched{m_processDescriptor.get(), POLLIN, 0};
    while (poll(&watched, 1, static_cast<int>(std::max(limit, std::chrono::milliseconds(0)).count())) == -1) {
        if (errno != EINTR)
            throwSystemError("poll");
        limit = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    }
    if (watched.revents == 0)
        return false;
    reap();
    return true;
}

void CChildProcess::stop(std::chrono::milliseconds limit)
{
    if (m_exitStatus)
        return;
    ::kill(-m_pid, SIGTERM);
    if (!waitForEnd(limit))
        kill();
}

void CChildProcess::kill()
{
    if (m_exitStatus)
        return;
    ::kill(-m_pid, SIGKILL);
    reap();
}

std::optional<int> CChildProcess::exitStatus() const
{
    return m_exitStatus;
}

/// For a program that has ended or was killed. Its number stays reserved until it is reaped, so that the group is still
/// its own.
void CChildProcess::reap()
{
    siginfo_t ended{};
    while (waitid(P_PID, static_cast<id_t>(m_pid), &ended, WEXITED | WNOWAIT) == -1 && errno == EINTR)
        continue;
    ::kill(-m_pid, SIGKILL);
    ::kill(m_keeper, SIGKILL);
    reapChild(m_keeper);
    m_exitStatus = statusOf(reapChild(m_pid));
}

std::vector<std::string> inheritedLibraryPath()
{
    const char* const value = std::getenv(libraryPath);
    if (!value)
        return {};
    return {std::string(libraryPath) + "=" + value};
}

} // namespace support
