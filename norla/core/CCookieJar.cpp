#include "norla/core/CCookieJar.h"

#include "kx/base/CError.h"
#include "kx/files/COutputFile.h"
#include "kx/files/readWholeFile.h"
#include "kx/text/numbers.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/CHeldCookies.h"
#include "norla/core/cookieLine.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace norla {

namespace {

struct CListCleanup {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CList = std::unique_ptr<curl_slist, CListCleanup>;

using Mutexes = std::array<std::recursive_mutex, CURL_LOCK_DATA_LAST>; // as CHeldCookies takes them

void lockShare(CURL* /*handle*/, curl_lock_data data, curl_lock_access /*access*/, void* mutexes) noexcept
{
    (*static_cast<Mutexes*>(mutexes))[data].lock();
}

void unlockShare(CURL* /*handle*/, curl_lock_data data, void* mutexes) noexcept
{
    (*static_cast<Mutexes*>(mutexes))[data].unlock();
}

template <typename TValue>
void setShareOption(CURLSH* share, CURLSHoption option, TValue value)
{
    const CURLSHcode result = curl_share_setopt(share, option, value);
    if (result != CURLSHE_OK)
        throw kx::CError("Error creating cookie jar: " + kx::String::fromLatin1(curl_share_strerror(result)) + ".");
}

using CShareHandle = std::unique_ptr<CURLSH, CURLSHcode (*)(CURLSH*)>;

CShareHandle newShare(Mutexes& mutexes)
{
    CGlobalInit::get();
    CShareHandle share(curl_share_init(), &curl_share_cleanup);
    if (!share)
        throw kx::CError("Error creating cookie jar.");
    setShareOption(share.get(), CURLSHOPT_LOCKFUNC, &lockShare);
    setShareOption(share.get(), CURLSHOPT_UNLOCKFUNC, &unlockShare);
    setShareOption(share.get(), CURLSHOPT_USERDATA, static_cast<void*>(&mutexes));
    setShareOption(share.get(), CURLSHOPT_SHARE, static_cast<int>(CURL_LOCK_DATA_COOKIE));
    return share;
}

struct CCookieLines {
    std::vector<std::string> cookies;
    size_t skipped = 0;
};

constexpr size_t mostCookies = 10'000;

/// What comes behind one cookie too many is not looked at.
CCookieLines linesOf(std::string_view content)
{
    constexpr size_t longestLine = 8 << 10;
    CCookieLines lines;
    while (!content.empty() && lines.cookies.size() <= mostCookies) {
        const size_t end = std::min(content.find('\n'), content.size());
        std::string_view line = content.substr(0, end);
        content.remove_prefix(std::min(end + 1, content.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.size() <= longestLine && parseCookieLine(line))
            lines.cookies.emplace_back(line);
        else if (!isCookieComment(line))
            ++lines.skipped;
    }
    return lines;
}

} // namespace

struct CCookieJar::CShare {
    CShare() { handle.shareCookies(share.get()); }

    /// Calls the action with each cookie that has not expired, and its line. libcurl drops those that have only when
    /// it looks for some to send.
    template <typename TAction>
    void forEach(TAction action)
    {
        const long long now = kx::CTime::now().getMicroseconds();
        const CList list = lines();
        for (const curl_slist* line = list.get(); line; line = line->next) {
            const auto cookie = parseCookieLine(line->data);
            if (cookie && (!cookie->expiry.isSet() || cookie->expiry.getMicroseconds() > now))
                action(line->data, *cookie);
        }
    }

    CList lines()
    {
        curl_slist* list = nullptr;
        const std::lock_guard lock(mutex);
        if (!handle.ask(CURLINFO_COOKIELIST, list))
            throw kx::CError("The cookies cannot be told.");
        return CList(list);
    }

    Mutexes mutexes;  // for libcurl
    std::mutex mutex; // for the handle
    const CShareHandle share = newShare(mutexes);
    CEasyHandle handle; // goes before the share, which is not freed while somebody uses it
};

CCookieJar::CCookieJar()
    : m_share(std::make_unique<CShare>())
{
}

CCookieJar::~CCookieJar() = default;

size_t CCookieJar::load(const Path& path)
{
    constexpr size_t mostBytes = 16 << 20;
    const CCookieLines lines = linesOf(kx::readWholeFile(path, mostBytes));
    if (lines.cookies.empty() && lines.skipped > 0)
        throw kx::CError("The file '" + path.toString() + "' is no cookie file: none of its lines is a cookie.");
    if (lines.cookies.size() > mostCookies)
        throw kx::CError("The file '" + path.toString() + "' holds more than "
            + kx::toString(static_cast<long long>(mostCookies)) + " cookies.");
    const std::lock_guard lock(m_share->mutex);
    for (const std::string& line : lines.cookies)
        m_share->handle.setText(CURLOPT_COOKIELIST, line);
    return lines.skipped;
}

void CCookieJar::save(const Path& path, SessionCookies sessionCookies) const
{
    std::string content = "# Netscape HTTP Cookie File\n";
    m_share->forEach([&](std::string_view line, const CCookie& cookie) {
        if (cookie.expiry.isSet() || sessionCookies == SessionCookies::Keep)
            content.append(line) += '\n';
    });
    kx::COutputFile file(path, {.readers = kx::COutputFile::Readers::Owner});
    file.write(reinterpret_cast<const unsigned char*>(content.data()), static_cast<int>(content.size()));
    file.finish();
}

kx::TArray<CCookie> CCookieJar::getCookies() const
{
    kx::TArray<CCookie> cookies;
    m_share->forEach([&cookies](std::string_view /*line*/, const CCookie& cookie) { cookies.push_back(cookie); });
    return cookies;
}

void CCookieJar::clear()
{
    const std::lock_guard lock(m_share->mutex);
    m_share->handle.setText(CURLOPT_COOKIELIST, "ALL");
}

CURLSH* CCookieJar::getShare() const noexcept
{
    return m_share->share.get();
}

void CCookieJar::hold() const noexcept
{
    CHeldCookies::hold(m_share->mutexes[CURL_LOCK_DATA_COOKIE]);
}

} // namespace norla
