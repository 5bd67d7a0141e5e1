#pragma once

#include <sys/resource.h>

namespace support {

/// As long as it lives, the process opens nothing whose number would be that or greater.
class CFewDescriptors {
public:
    explicit CFewDescriptors(rlim_t most)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const struct rlimit few {
            most, m_before.rlim_max
        };
        setrlimit(RLIMIT_NOFILE, &few);
    }
    CFewDescriptors(const CFewDescriptors&) = delete;
    CFewDescriptors& operator=(const CFewDescriptors&) = delete;
    ~CFewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    struct rlimit m_before {};
};

} // namespace support
