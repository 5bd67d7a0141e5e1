// The library's pool.
#include "bench/CPoolRun.h"
#include "bench/peers/peer.h"

#include <cstdlib>

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    bench::CPoolRun run(bench::requestsTo(arguments[1], std::atoi(arguments[2])));
    return bench::servePeer([&run](int transfers) { run.run(transfers); });
}
