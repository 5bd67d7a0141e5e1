#include "tests/support/COutputCapture.h"

#include "tests/support/systemError.h"

#include <array>
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

namespace support {

COutputCapture::COutputCapture(bool isTerminal)
{
    if (isTerminal)
        openTerminal();
    else
        openPipe();
}

int COutputCapture::theirEnd() const
{
    return m_theirEnd.get();
}

void COutputCapture::closeTheirEnd()
{
    m_theirEnd.close();
}

int COutputCapture::ourEnd() const
{
    return m_ourEnd.get();
}

void COutputCapture::read()
{
    std::array<char, 65536> block;
    const ssize_t count = ::read(m_ourEnd.get(), block.data(), block.size());
    // A terminal that nobody writes to any more answers EIO.
    if (count == 0 || (count == -1 && errno == EIO)) {
        m_ourEnd.close();
        return;
    }
    if (count == -1 && errno == EINTR)
        return;
    m_text.append(block.data(), static_cast<size_t>(checked(count, "read")));
}

const std::string& COutputCapture::text() const
{
    return m_text;
}

void COutputCapture::openTerminal()
{
    winsize size{};
    size.ws_col = 80;
    size.ws_row = 24;
    int ours = -1;
    int theirs = -1;
    checked(openpty(&ours, &theirs, nullptr, nullptr, &size), "openpty");
    m_ourEnd = CDescriptor(ours);
    m_theirEnd = CDescriptor(theirs);
    termios modes{};
    checked(tcgetattr(theirs, &modes), "tcgetattr");
    cfmakeraw(&modes);
    checked(tcsetattr(theirs, TCSANOW, &modes), "tcsetattr");
    for (const int end : {ours, theirs})
        checked(fcntl(end, F_SETFD, FD_CLOEXEC), "FD_CLOEXEC");
}

void COutputCapture::openPipe()
{
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    m_ourEnd = CDescriptor(ends[0]);
    m_theirEnd = CDescriptor(ends[1]);
}

} // namespace support
