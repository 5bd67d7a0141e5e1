#include "kx/time/CTime.h"

#include <chrono>

namespace kx {

CTime CTime::now()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return CTime(std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
}

} // namespace kx
