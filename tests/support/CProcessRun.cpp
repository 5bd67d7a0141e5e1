#include "tests/support/CProcessRun.h"

#include "tests/support/CChildProcess.h"
#include "tests/support/COutputCapture.h"
#include "tests/support/systemError.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

namespace {

using CClock = std::chrono::steady_clock;
using Terminal = CProcessRun::Terminal;

/// @return a nameless file with these bytes, to be read from its start
CDescriptor inputFile(std::string_view bytes)
{
    CDescriptor file(checked(memfd_create("input", MFD_CLOEXEC), "memfd_create"));
    while (!bytes.empty())
        bytes.remove_prefix(static_cast<size_t>(checked(write(file.get(), bytes.data(), bytes.size()), "write")));
    checked(lseek(file.get(), 0, SEEK_SET), "lseek");
    return file;
}

std::chrono::milliseconds timeLeft(CClock::time_point end)
{
    using std::chrono::milliseconds;
    return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(end - CClock::now()));
}

/// @return whether both outputs have ended in time
bool readOutputs(COutputCapture& output, COutputCapture& errors, CClock::time_point end)
{
    while (output.ourEnd() != -1 || errors.ourEnd() != -1) {
        std::array<pollfd, 2> watched{pollfd{output.ourEnd(), POLLIN, 0}, pollfd{errors.ourEnd(), POLLIN, 0}};
        const int count = poll(watched.data(), watched.size(), static_cast<int>(timeLeft(end).count()));
        if (count == -1 && errno != EINTR)
            throwSystemError("poll");
        if (count == 0)
            return false;
        if (count > 0 && watched[0].revents != 0)
            output.read();
        if (count > 0 && watched[1].revents != 0)
            errors.read();
    }
    return true;
}

} // namespace

CProcessRun::CProcessRun(const CSettings& settings)
{
    const auto end = CClock::now() + settings.limit;
    COutputCapture output(settings.terminal == Terminal::Output || settings.terminal == Terminal::Both);
    COutputCapture errors(settings.terminal == Terminal::Errors || settings.terminal == Terminal::Both);
    CChildProcess process({.arguments = settings.arguments,
        .package = settings.package,
        .environment = settings.environment,
        .input = inputFile(settings.input).get(),
        .output = output.theirEnd(),
        .errors = errors.theirEnd()});
    output.closeTheirEnd();
    errors.closeTheirEnd();
    const bool isInTime = readOutputs(output, errors, end) && process.waitForEnd(timeLeft(end));
    m_output = output.text();
    m_errors = errors.text();
    if (!isInTime)
        throw std::runtime_error(
            settings.arguments[0] + " did not end in time; its output: " + m_output + "; its errors: " + m_errors);
    m_exitStatus = *process.exitStatus();
}

CProcessRun::CProcessRun(const std::vector<std::string>& arguments)
    : CProcessRun(CSettings{.arguments = arguments})
{
}

int CProcessRun::exitStatus() const
{
    return m_exitStatus;
}

const std::string& CProcessRun::output() const
{
    return m_output;
}

const std::string& CProcessRun::errors() const
{
    return m_errors;
}

} // namespace support
