#include "norla/core/CRequestURL.h"

#include <algorithm>
#include <array>

namespace norla {

namespace {

struct CSchemeRow {
    const char* scheme;
    const char* domain;
};
constexpr auto schemes = std::to_array<CSchemeRow>({
    {"http", "http"},
    {"https", "http"},
    {"ftp", "ftp"},
    {"ftps", "ftp"},
    {"sftp", "ftp"},
    {"smtp", "smtp"},
    {"smtps", "smtp"},
});

kx::String domainOf(const kx::String& scheme)
{
    const auto row = std::find_if(schemes.begin(), schemes.end(),
        [&scheme](const CSchemeRow& candidate) { return scheme == kx::String::fromLatin1(candidate.scheme); });
    return kx::String::fromLatin1(row == schemes.end() ? "" : row->domain);
}

} // namespace

CRequestURL::CRequestURL(const kx::String& url)
    : m_url(url)
{
    const kx::String scheme = getScheme();
    m_isSSH = scheme == "sftp" || scheme == "scp";
    setSpoken(scheme);
}

void CRequestURL::setSpoken(const kx::String& scheme)
{
    m_domain = domainOf(scheme.toLower());
    m_isHTTP = m_domain == "http";
    m_isMail = m_domain == "smtp";
}

kx::String CRequestURL::getScheme() const
{
    const size_t colon = m_url.find(L':');
    return colon == kx::String::npos ? kx::String() : m_url.substr(0, colon).toLower();
}

} // namespace norla
