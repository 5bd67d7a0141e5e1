#pragma once

#include "bench/peers/peer.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace bench {

/// The program of a library whose calls block: a session and a thread for each transfer that is to run at once.
///   program URL AT-ONCE
/// @tparam Session is made from the URL, and its transfer() makes one transfer and ends the program if that fails
/// @return what main() returns
template <class Session>
int serveBlockingPeer(int count, char** arguments)
{
    if (count != 3)
        return 2;
    std::vector<std::unique_ptr<Session>> sessions;
    for (int atOnce = std::atoi(arguments[2]); atOnce > 0; --atOnce)
        sessions.push_back(std::make_unique<Session>(std::string(arguments[1])));
    return servePeer([&sessions](int transfers) {
        std::vector<std::thread> threads;
        for (size_t thread = 0; thread < sessions.size(); ++thread) {
            const size_t share = (static_cast<size_t>(transfers) + thread) / sessions.size();
            threads.emplace_back([&session = *sessions[thread], share] {
                for (size_t done = 0; done < share; ++done)
                    session.transfer();
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });
}

} // namespace bench
