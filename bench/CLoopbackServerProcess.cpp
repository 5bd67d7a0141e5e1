#include "bench/CLoopbackServerProcess.h"

#include "bench/CLoopbackServer.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

CLoopbackServerProcess::CLoopbackServerProcess(long long downloadSize)
{
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "a pipe to the server");
    m_process = fork();
    if (m_process == 0)
        serve(downloadSize, pipe[1]);
    close(pipe[1]);
    std::array<char, 64> root{};
    const bool good = m_process > 0 && read(pipe[0], root.data(), root.size() - 1) > 0;
    close(pipe[0]);
    if (!good)
        throw std::system_error(errno, std::generic_category(), "the server's process");
    m_root = root.data();
}

CLoopbackServerProcess::~CLoopbackServerProcess()
{
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

std::string CLoopbackServerProcess::url(const std::string& path) const
{
    return m_root + path;
}

void CLoopbackServerProcess::serve(long long downloadSize, int pipe)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const CLoopbackServer server(downloadSize);
    const std::string root = server.url("");
    if (write(pipe, root.data(), root.size()) < 0)
        std::exit(1);
    for (;;)
        pause();
}

} // namespace bench
