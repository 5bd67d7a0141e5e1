#pragma once

#include "tests/support/systemError.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>
#include <vector>

namespace support {

/// Keeps so many descriptors open that every new one is larger than a fd_set can hold. One at a time.
class CFullProcess {
public:
    /// @throws std::system_error when the process may not have as many
    CFullProcess()
    {
        checked(getrlimit(RLIMIT_NOFILE, &m_before), "getrlimit");
        rlimit more = m_before;
        more.rlim_cur = std::min<rlim_t>(more.rlim_max, 4 * FD_SETSIZE);
        checked(setrlimit(RLIMIT_NOFILE, &more), "setrlimit");
        do
            m_descriptors.push_back(checked(open("/dev/null", O_RDONLY | O_CLOEXEC), "open /dev/null"));
        while (m_descriptors.back() < FD_SETSIZE);
    }
    CFullProcess(const CFullProcess&) = delete;
    CFullProcess& operator=(const CFullProcess&) = delete;
    ~CFullProcess()
    {
        for (const int descriptor : m_descriptors)
            close(descriptor);
        setrlimit(RLIMIT_NOFILE, &m_before);
    }

private:
    rlimit m_before{};
    std::vector<int> m_descriptors;
};

} // namespace support
