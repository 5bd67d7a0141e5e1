#pragma once

#include "bench/turns.h"

#include <cstdio>
#include <functional>

namespace bench {

/// What a program of peers_bench does: for each number that comes on standard input it makes so many transfers, and
/// answers how many seconds of CPU time and wall clock they have taken.
/// @return what main() returns
inline int servePeer(const std::function<void(int)>& run)
{
    int transfers = 0;
    while (std::scanf("%d", &transfers) == 1) {
        const CCost cost = processCost([&] { run(transfers); });
        std::printf("%.9f %.9f\n", cost.cpu, cost.wall);
        std::fflush(stdout);
    }
    return 0;
}

} // namespace bench
