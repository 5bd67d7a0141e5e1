#include "norla/s3/CS3RefreshedCredentials.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"

#include <algorithm>
#include <utility>

namespace norla {

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
    const long long early = std::max(m_early.getMicroseconds(), 0LL);
    if (m_isFetched && !haveEnded(kx::CTime(now.getMicroseconds() + early)))
        return m_last;
    try {
        m_last = m_fetch();
        m_isFetched = true;
    } catch (const std::exception& error) {
        if (!m_isFetched || haveEnded(now))
            throw;
        kx::logWarning(error, "The S3 credentials could not be fetched anew; the last ones serve until they end.", "");
    }
    return m_last;
}

bool CS3RefreshedCredentials::haveEnded(const kx::CTime& when) const
{
    return m_last.expiry.isSet() && m_last.expiry.getMicroseconds() <= when.getMicroseconds();
}

} // namespace norla
