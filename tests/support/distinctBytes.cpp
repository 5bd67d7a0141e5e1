#include "tests/support/distinctBytes.h"

#include <mutex>

namespace support {

// Made once: tests want megabytes of them again and again.
std::string distinctBytes(size_t size)
{
    static std::mutex mutex;
    static std::string made;
    static unsigned number = 0;
    const std::lock_guard lock(mutex);
    while (made.size() < size)
        made += std::to_string(number++) + ' ';
    return made.substr(0, size);
}

} // namespace support
