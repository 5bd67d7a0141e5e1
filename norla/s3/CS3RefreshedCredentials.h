#pragma once

#include "kx/base/CBase.h"
#include "kx/time/CTimeSpan.h"
#include "norla/s3/IS3Credentials.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

namespace norla {

/// Credentials for a while, fetched anew before they end. Any thread: one fetches, and the others wait for it.
class KX_EXPORT CS3RefreshedCredentials : public kx::CBase, public IS3Credentials {
public:
    using Fetch = std::function<CS3Credentials()>;

    /// @param fetch not empty; called in whichever thread asks, never twice at once. Credentials without an end are
    /// fetched once.
    /// @param early how long before their end they are fetched anew; 0 or less: not before
    /// @throws kx::CInvalidArgError when `fetch` is empty
    explicit CS3RefreshedCredentials(Fetch fetch, kx::CTimeSpan early = kx::CTimeSpan::fromSeconds(300));
    ~CS3RefreshedCredentials() override;

    /// @throws what `fetch` throws, once the last ones have ended: until then a failure is logged, and they serve on.
    /// Behind such a failure `fetch` is left alone for ten seconds, or until they end.
    CS3Credentials get() override;

private:
    bool endWithin(const kx::CTime& now, const kx::CTimeSpan& time) const;
    bool haveEnded(const kx::CTime& when) const;

    const Fetch m_fetch;
    const kx::CTimeSpan m_early;
    std::mutex m_mutex;
    bool m_isFetched = false;
    std::optional<std::chrono::steady_clock::time_point> m_nextFetch; // while the last ones serve on
    CS3Credentials m_last;
};

} // namespace norla
