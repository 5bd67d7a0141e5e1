#pragma once

#include <mutex>

namespace norla {

/// The shared cookies that this thread keeps from all others. libcurl 8.11 to 8.15 gives back their lock before it
/// writes the cookies that it sends, out of a list whose links stand in the cookies themselves: another thread that
/// looks for some meanwhile makes a list of its own of the same links, or frees what is being read. Held from the
/// moment when a request begins until libcurl calls for the first time after it was written.
class CHeldCookies {
public:
    /// Whether the libcurl of this process has to be helped. @param version as curl_version_info_data has it
    static bool areNeeded() noexcept;
    static bool areNeeded(unsigned int version) noexcept;

    /// Waits until no other thread holds them; those that this thread has held until now are released.
    /// @param lock of the cookies, alive until release()
    static void hold(std::recursive_mutex& lock) noexcept;

    /// Does nothing where this thread holds none.
    static void release() noexcept;
};

} // namespace norla
