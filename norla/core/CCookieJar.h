#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TArray.h"
#include "kx/files/TPathImpl.h"
#include "norla/core/CCookie.h"

#include <curl/curl.h>

#include <memory>

namespace norla {

/// The cookies of a session, which all requests that have this jar (CNetRequest::setCookieJar()) take, send and add to:
///
///     const auto jar = kx::newObj<CCookieJar>();
///     jar->load(path);
///     request->setCookieJar(jar.get());
///     request->perform();
///     jar->save(path);
///
/// Which cookie goes where is what RFC 6265 says: to the server that has set it, or the subdomains of the domain that
/// it has named, which is never a whole registry ("co.uk") as far as libcurl was built with a list of these.
///
/// Any thread, also while requests with this jar run on others. A request keeps a reference
/// until another jar takes its place, reset() or its own end: a jar is made with kx::newObj() and never stands on the
/// stack.
class KX_EXPORT CCookieJar : public kx::CBase {
public:
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    /// What save() does with cookies that have no expiry: servers mean these to end with the session.
    enum class SessionCookies { Drop, Keep };

    /// An empty jar. @throws as CGlobalInit::get(); kx::CError when there is no memory
    CCookieJar();
    CCookieJar(const CCookieJar&) = delete;
    CCookieJar& operator=(const CCookieJar&) = delete;
    ~CCookieJar() override;

    /// Adds the cookies of a file, of which those replace others of the same name, domain and path; those that have
    /// expired are left out. The file has a cookie a line, in the form that save() and libcurl's tool write. Lines that
    /// are no cookies, or longer than 8 KiB, are skipped.
    /// @return how many lines were skipped, comments aside
    /// @throws kx::CError which names the file: when it cannot be read or is no regular file, holds more than 16 MiB or
    /// 10,000 cookies, or lines but not one cookie; nothing was added then
    size_t load(const Path& path);

    /// Writes the cookies to a file that nobody else may read, whole or not at all (kx::COutputFile).
    /// @throws kx::CError which names path and reason, also for a pipe or device; an older file stays then
    void save(const Path& path, SessionCookies sessionCookies = SessionCookies::Drop) const;

    /// Those that have not expired, in no order.
    kx::TArray<CCookie> getCookies() const;

    /// Drops all cookies, also for requests that have this jar.
    void clear();

    /// For CNetRequest: libcurl's, owned by this object.
    CURLSH* getShare() const noexcept;

    /// For CNetRequest: keeps other threads from the cookies until CHeldCookies::release().
    void hold() const noexcept;

private:
    struct CShare;
    const std::unique_ptr<CShare> m_share;
};

} // namespace norla
