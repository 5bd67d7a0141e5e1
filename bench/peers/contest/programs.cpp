#include "bench/peers/contest/programs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace bench {

bool isInstalled(const std::string& program)
{
    const std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find(':', start), path.size());
        if (access((path.substr(start, end - start) + '/' + program).c_str(), X_OK) == 0)
            return true;
        start = end + 1;
    }
    std::fprintf(stderr, "%s is not installed, and left out.\n", program.c_str());
    return false;
}

Words joined(Words words, const Words& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

} // namespace bench
