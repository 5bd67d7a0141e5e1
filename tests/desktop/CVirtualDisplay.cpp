#include "tests/desktop/CVirtualDisplay.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace {

/// @param descriptor to which a line comes
std::string readLine(int descriptor)
{
    constexpr int limit = 20'000; // milliseconds, for each letter
    std::string line;
    for (;;) {
        pollfd source{descriptor, POLLIN, 0};
        char letter = 0;
        if (poll(&source, 1, limit) != 1 || read(descriptor, &letter, 1) != 1)
            throw std::runtime_error("Xvfb does not say which display it serves");
        if (letter == '\n')
            return line;
        line += letter;
    }
}

} // namespace

CVirtualDisplay::CVirtualDisplay()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe2");
    const support::CDescriptor output(ends[0]);
    support::CDescriptor input(ends[1]);
    const std::string number = std::to_string(input.get());
    m_server = std::make_unique<support::CChildProcess>(support::CChildProcess::CSettings{
        .arguments = {"Xvfb", "-displayfd", number, "-screen", "0", "1024x768x24", "-nolisten", "tcp"},
        .package = "xvfb",
        .inheritedDescriptors = {input.get()}});
    input.close(); // its end is the end of the line
    m_number = readLine(output.get());
}

std::vector<std::string> CVirtualDisplay::environment() const
{
    return {"DISPLAY=:" + m_number, "GDK_BACKEND=x11", "NO_AT_BRIDGE=1", "GSETTINGS_BACKEND=memory",
        "GIO_USE_VFS=local", "DBUS_SESSION_BUS_ADDRESS=disabled:"};
}
