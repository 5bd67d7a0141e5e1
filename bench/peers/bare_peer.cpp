// libcurl's event interface by hand.
#include "bench/bareSockets.h"
#include "bench/peers/peer.h"

#include <cstdlib>

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    bench::CBareSocketLoop<bench::CBareTransfer> loop(
        std::vector<std::string>(static_cast<size_t>(std::atoi(arguments[2])), arguments[1]));
    return bench::servePeer([&loop](int transfers) { loop.run(transfers); });
}
