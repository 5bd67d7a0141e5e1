// Runs another program and says what it has taken: wall clock and CPU seconds, and the most memory in KiB. A program of
// its own because Linux counts the memory of whoever starts a program as that program's: this one has next to none.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

[[noreturn]] void become(const char* log, char** arguments)
{
    const int file = open(log, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file >= 0 && dup2(file, STDOUT_FILENO) >= 0 && dup2(file, STDERR_FILENO) >= 0)
        execvp(arguments[0], arguments);
    std::fprintf(stderr, "%s: %s\n", arguments[0], std::strerror(errno));
    _exit(127);
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 3) {
        std::fprintf(stderr, "Usage: program_measure LOG PROGRAM ARGUMENT...\n");
        return 2;
    }
    const double start = now();
    const pid_t child = fork();
    if (child == 0)
        become(arguments[1], arguments + 2);
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        std::perror("program_measure");
        return 1;
    }
    std::printf(
        "%.6f %.6f %ld\n", now() - start, secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime), usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
