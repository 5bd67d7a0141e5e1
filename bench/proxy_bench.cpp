// Looking up the proxy of a URL beside the same rule written by hand over standard containers.
#include "bench/compare.h"
#include "norla/proxy/CProxySettings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int urlCount = 4000;
constexpr int rounds = 25;
constexpr double limit = 3.00; // the library keeps wide text

std::string lowered(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
        [](char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; });
    return lower;
}

/// The rule of CProxySettings::getProxyForURL(), with bytes for text.
class CBareSettings {
public:
    void setProxy(const std::string& scheme, const std::string& proxy) { m_proxies[scheme] = proxy; }
    void addHost(const std::string& host) { m_hosts.insert(lowered(host)); }

    std::string getProxyForURL(std::string_view url) const
    {
        const size_t colon = url.find(':');
        if (colon == std::string_view::npos)
            return {};
        const std::lock_guard lock(m_mutex);
        const auto found = m_proxies.find(lowered(url.substr(0, colon)));
        if (found == m_proxies.end())
            return {};
        return m_hosts.contains(lowered(hostOf(url.substr(colon + 1)))) ? std::string() : found->second;
    }

private:
    static std::string_view hostOf(std::string_view rest)
    {
        rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
        for (const char delimiter : {'/', '?', '#'}) {
            const size_t end = rest.find(delimiter);
            if (end != std::string_view::npos) {
                rest = rest.substr(0, end);
                break;
            }
        }
        return rest.substr(0, rest.rfind(':'));
    }

    std::map<std::string, std::string> m_proxies;
    std::set<std::string> m_hosts;
    mutable std::recursive_mutex m_mutex;
};

std::string hostName(int number)
{
    return "server-" + std::to_string(100000 + number) + ".departments.example.org";
}

/// Every second URL is of a direct host, where there are any.
std::vector<std::string> urls(int hostCount)
{
    std::vector<std::string> texts;
    for (int i = 0; i < urlCount; ++i) {
        const int number = hostCount > 0 && i % 2 == 0 ? i * 7 % hostCount : -1 - i;
        texts.push_back("https://" + hostName(number) + ":8443/documents/2026/report.pdf?version=" + std::to_string(i));
    }
    return texts;
}

std::vector<kx::String> converted(const std::vector<std::string>& texts)
{
    std::vector<kx::String> wide;
    for (const std::string& text : texts)
        wide.push_back(kx::String::fromUTF8(text));
    return wide;
}

[[noreturn]] void failDifferent(const std::string& url)
{
    std::fprintf(stderr, "The two sides answer differently for %s\n", url.c_str());
    std::exit(1);
}

bool compareLookUp(int hostCount)
{
    norla::CProxySettings settings;
    CBareSettings bareSettings;
    settings.addProxiesFromString("proxy.example.org:3128");
    for (const char* const scheme : {"http", "https", "ftp"})
        bareSettings.setProxy(scheme, "proxy.example.org:3128");
    for (int i = 0; i < hostCount; ++i) {
        settings.addDirectConnectHost(kx::String::fromLatin1(hostName(i)));
        bareSettings.addHost(hostName(i));
    }
    const std::vector<std::string> bareURLs = urls(hostCount);
    const std::vector<kx::String> wideURLs = converted(bareURLs);
    for (int i = 0; i < urlCount; ++i) {
        const auto index = static_cast<size_t>(i);
        if (settings.getProxyForURL(wideURLs[index]).toUTF8() != bareSettings.getProxyForURL(bareURLs[index]))
            failDifferent(bareURLs[index]);
    }
    const auto bare = [&] {
        for (const std::string& url : bareURLs)
            bareSettings.getProxyForURL(url);
    };
    const auto norla = [&] {
        for (const kx::String& url : wideURLs)
            settings.getProxyForURL(url);
    };
    const std::string name = "4000 look-ups, " + std::to_string(hostCount) + " direct hosts";
    const bool good = bench::compare({name, limit, rounds, bare, norla});
    const double start = bench::threadSeconds();
    norla();
    std::printf("%-44s %30.0f ns a look-up\n", "", (bench::threadSeconds() - start) / urlCount * 1e9);
    return good;
}

} // namespace

int main()
{
    bench::printHeading();
    bool good = true;
    for (const int hostCount : {0, 10, 1000, 100000})
        good &= compareLookUp(hostCount);
    return good ? 0 : 1;
}
