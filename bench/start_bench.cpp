// A whole program with the library beside one with bare libcurl: from its start to its end, one small download.
#include "bench/CLoopbackServer.h"
#include "bench/compare.h"
#include "bench/cores.h"

#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

constexpr int runCount = 10;
constexpr int rounds = 51;
constexpr double limit = 1.10;

/// Runs a program whose output nobody sees, and waits for its end.
void run(std::string program, std::string url)
{
    posix_spawn_file_actions_t actions;
    char* const arguments[] = {program.data(), url.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn_file_actions_init(&actions) != 0
        || posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) != 0
        || posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ) != 0)
        throw std::runtime_error(program + " does not start");
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error(program + " fails");
}

double inSeconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// CPU time of all programs that have ended, in seconds.
double programSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return inSeconds(usage.ru_utime) + inSeconds(usage.ru_stime);
}

bool comparePrograms(const char* name, const std::string& url, double (*clock)())
{
    const auto runs = [&url](const char* program) {
        return [&url, program] {
            for (int i = 0; i < runCount; ++i)
                run(program, url);
        };
    };
    return bench::compare({name, limit, rounds, runs(NORLA_HELLO_BARE), runs(NORLA_HELLO), clock});
}

} // namespace

int main()
{
    try {
        bench::useFirstCore();
        const bench::CLoopbackServer server(0);
        const std::string url = server.url("/small");
        bench::printHeading();
        bool good = comparePrograms("10 programs that fetch 1 KiB, their CPU time", url, &programSeconds);
        good &= comparePrograms("the same, wall clock", url, &bench::wallSeconds);
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "start_bench: %s\n", error.what());
        return 1;
    }
}
