#include "bench/cores.h"

#include <sched.h>

namespace bench {

namespace {

bool useCore(int core)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

} // namespace

// A core that the thread is not allowed is refused.
void useFirstCore()
{
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (useCore(core))
            return;
    }
}

void useLastCore()
{
    for (int core = CPU_SETSIZE - 1; core >= 0; --core) {
        if (useCore(core))
            return;
    }
}

void useAllCores()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int core = 0; core < CPU_SETSIZE; ++core)
        CPU_SET(core, &set);
    sched_setaffinity(0, sizeof(set), &set);
}

} // namespace bench
