#include "norla/s3/CS3RefreshedCredentials.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds pauseBehindFailure{10};

} // namespace

CS3RefreshedCredentials::CS3RefreshedCredentials(Fetch fetch, kx::CTimeSpan early)
    : m_fetch(std::move(fetch))
    , m_early(early)
{
    if (!m_fetch)
        throw kx::CInvalidArgError("fetch is empty", "norla::CS3RefreshedCredentials::CS3RefreshedCredentials");
}

CS3RefreshedCredentials::~CS3RefreshedCredentials() = default;

CS3Credentials CS3RefreshedCredentials::get()
{
    const std::lock_guard lock(m_mutex);
    const kx::CTime now = kx::CTime::now();
    if (m_isFetched && !endWithin(now, m_early))
        return m_last;
    const bool isTooEarly = m_nextFetch && Clock::now() < *m_nextFetch;
    if (isTooEarly && !haveEnded(now))
        return m_last;
    try {
        m_last = m_fetch();
        m_isFetched = true;
        m_nextFetch.reset();
    } catch (const std::exception& error) {
        if (!m_isFetched || haveEnded(now))
            throw;
        m_nextFetch = Clock::now() + pauseBehindFailure; // each request would wait as long for the same
        kx::logWarning(error, "The S3 credentials could not be fetched anew; the last ones serve until they end.", "");
    }
    return m_last;
}

bool CS3RefreshedCredentials::endWithin(const kx::CTime& now, const kx::CTimeSpan& time) const
{
    const long long most = std::max(time.getMicroseconds(), 0LL);
    return m_last.expiry.isSet() && m_last.expiry.getMicroseconds() - most <= now.getMicroseconds();
}

bool CS3RefreshedCredentials::haveEnded(const kx::CTime& when) const
{
    return m_last.expiry.isSet() && m_last.expiry.getMicroseconds() <= when.getMicroseconds();
}

} // namespace norla
