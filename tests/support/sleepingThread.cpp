#include "tests/support/sleepingThread.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

namespace support {

namespace {

// The letter behind the name, which stands in parentheses and may hold any character: proc(5).
char stateOf(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const size_t nameEnd = line.rfind(") ");
    if (nameEnd == std::string::npos)
        throw std::runtime_error("There is no thread " + std::to_string(thread) + ".");
    return line[nameEnd + 2];
}

} // namespace

void waitUntilAsleep(pid_t thread)
{
    while (stateOf(thread) != 'S')
        std::this_thread::yield();
}

} // namespace support
