// The pool beside what people would take instead. Each is a program of its own; all of them make the same transfers
// from the same server, in turns.
#include "bench/CLoopbackServerProcess.h"
#include "bench/cores.h"
#include "bench/turns.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr int transfers = 4'000;
constexpr int rounds = 9;

/// A program that makes transfers on demand, as servePeer() does; ends with this object.
class CPeer {
public:
    CPeer(std::string program, std::string url, std::string atOnce)
    {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
        m_answers.reset(fdopen(fcntl(ends[0], F_DUPFD_CLOEXEC, 0), "r"));
        m_orders.reset(fdopen(ends[0], "w"));
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        char* const arguments[] = {program.data(), url.data(), atOnce.data(), nullptr};
        const int result = posix_spawn(&m_process, program.c_str(), &actions, nullptr, arguments, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        if (result != 0)
            throw std::system_error(result, std::generic_category(), program);
    }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;
    ~CPeer()
    {
        shutdown(fileno(m_orders.get()), SHUT_WR); // the end of its input
        waitpid(m_process, nullptr, 0);
    }

    bench::CCost run() const
    {
        std::fprintf(m_orders.get(), "%d\n", transfers);
        std::fflush(m_orders.get());
        bench::CCost cost;
        if (std::fscanf(m_answers.get(), "%lf %lf", &cost.cpu, &cost.wall) != 2)
            throw std::runtime_error("a peer fails");
        return cost;
    }

private:
    struct CClose {
        void operator()(FILE* stream) const { std::fclose(stream); }
    };
    std::unique_ptr<FILE, CClose> m_orders;
    std::unique_ptr<FILE, CClose> m_answers;
    pid_t m_process = 0;
};

void compare(const std::string& url, int atOnce)
{
    std::vector<bench::CContender> contenders;
    const auto add = [&](const char* name, const char* program) {
        const auto peer = std::make_shared<CPeer>(program, url, std::to_string(atOnce));
        contenders.push_back({name, [peer] { return peer->run(); }});
    };
    add("bare sockets", NORLA_BARE_PEER);
    add("pool", NORLA_POOL_PEER);
#ifdef NORLA_QT_PEER
    add("Qt", NORLA_QT_PEER);
#endif
#ifdef NORLA_SOUP_PEER
    add("libsoup", NORLA_SOUP_PEER);
#endif
#ifdef NORLA_CURLPP_PEER
    add("curlpp", NORLA_CURLPP_PEER);
#endif
#ifdef NORLA_POCO_PEER
    add("POCO", NORLA_POCO_PEER);
#endif
    bench::runInTurns(contenders, rounds);
    for (const bench::CContender& contender : contenders)
        bench::printTurnsRow(std::to_string(atOnce) + " at once", contender, contenders[0], transfers);
}

} // namespace

int main()
{
    try {
        const bench::CLoopbackServerProcess server(0);
        bench::useFirstCore();
        bench::printTurnsHeading("1 KiB");
        for (const int atOnce : {1, 8, 64})
            compare(server.url("/small"), atOnce);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "peers_bench: %s\n", error.what());
        return 1;
    }
}
