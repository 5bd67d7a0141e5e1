#include "norla/proxy/CProxySettings.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using Texts = kx::TArray<kx::String>;
using Pairs = std::vector<std::pair<kx::String, kx::String>>;

Pairs proxiesOf(const norla::CProxySettings& settings)
{
    Texts schemes;
    settings.getProxyURLSchemes(schemes);
    Pairs proxies;
    for (const kx::String& scheme : schemes)
        proxies.emplace_back(scheme, settings.getProxyForURLScheme(scheme));
    return proxies;
}

Texts hostsOf(const norla::CProxySettings& settings)
{
    Texts hosts;
    settings.getDirectConnectHosts(hosts);
    return hosts;
}

struct CListRow {
    const char* name;
    const char* text;
    Pairs expected;
};

class CProxyListTest : public testing::TestWithParam<CListRow> {};

TEST_P(CProxyListTest, isRead)
{
    norla::CProxySettings settings;
    settings.addProxiesFromString(GetParam().text);
    EXPECT_EQ(proxiesOf(settings), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, CProxyListTest,
    testing::ValuesIn(std::vector<CListRow>{
        {"empty", "", {}},
        {"onlySeparators", " ;,\t", {}},
        {"hostAndPort", "proxyhost:8080",
            {{"ftp", "proxyhost:8080"}, {"http", "proxyhost:8080"}, {"https", "proxyhost:8080"}}},
        {"hostAlone", "proxyhost", {{"ftp", "proxyhost"}, {"http", "proxyhost"}, {"https", "proxyhost"}}},
        {"oneEach", "http=p1:3128;https=p2:3128", {{"http", "p1:3128"}, {"https", "p2:3128"}}},
        {"url", "https://p:443", {{"https", "https://p:443"}}},
        {"otherURL", "socks5://gw:1080", {{"socks5", "socks5://gw:1080"}}},
        {"emptyPort", "p:", {{"p", "p:"}}},
        {"portThatIsNoNumber", "p:80a", {{"p", "p:80a"}}},
        {"blanksAndTabs", "http=a,\thttps=b  ftp=c", {{"ftp", "c"}, {"http", "a"}, {"https", "b"}}},
        {"removal", "p:1 ftp=", {{"http", "p:1"}, {"https", "p:1"}}},
        {"proxyWithEquals", "http=a=b", {{"http", "a=b"}}},
        {"upperCaseScheme", "HTTP=p", {{"http", "p"}}},
        {"otherWhiteSpaceIsTrimmed", "http=p\r\n", {{"http", "p"}}},
        {"laterOneWins", "http=a;http=b", {{"http", "b"}}},
    }),
    [](const testing::TestParamInfo<CListRow>& row) { return row.param.name; });

struct CURLRow {
    const char* name;
    const char* url;
    const char* proxy;
};

class CProxyForURLTest : public testing::TestWithParam<CURLRow> {};

TEST_P(CProxyForURLTest, isChosen)
{
    norla::CProxySettings settings;
    settings.setProxyForURLScheme("http", "p:1");
    settings.addDirectConnectHost("IntraNet");
    settings.addDirectConnectHost("host?a=");
    settings.addDirectConnectHost("a:b");
    EXPECT_EQ(settings.getProxyForURL(GetParam().url), GetParam().proxy);
}

INSTANTIATE_TEST_SUITE_P(All, CProxyForURLTest,
    testing::ValuesIn(std::vector<CURLRow>{
        {"proxied", "http://otherhost/x", "p:1"},
        {"direct", "http://intranet/x", ""},
        {"directWithPort", "http://intranet:8080/x", ""},
        {"directWithoutPath", "http://intranet", ""},
        {"directWithQuery", "http://intranet?q", ""},
        {"directWithFragment", "http://intranet#f", ""},
        {"directInUpperCase", "http://INTRANET/", ""},
        {"directWithoutSlashes", "http:intranet/x", ""},
        {"directWithManySlashes", "http:////intranet/x", ""},
        {"subdomainIsNotDirect", "http://a.intranet/", "p:1"},
        {"userCountsAsHost", "http://me@intranet/", "p:1"},
        {"slashInAQueryEndsTheHost", "http://host?a=/b", ""},
        {"portFromTheLastColon", "http://a:b:80/", ""},
        {"schemeInUpperCase", "HTTP://host/", "p:1"},
        {"otherScheme", "ftp://otherhost/", ""},
        {"noColon", "otherhost", ""},
        {"onlyAScheme", "http:", "p:1"},
        {"empty", "", ""},
    }),
    [](const testing::TestParamInfo<CURLRow>& row) { return row.param.name; });

TEST(CProxySettingsTest, startsEmpty)
{
    const norla::CProxySettings settings;
    EXPECT_TRUE(proxiesOf(settings).empty());
    EXPECT_TRUE(hostsOf(settings).empty());
}

TEST(CProxySettingsTest, readsSchemesWithoutRegardToCase)
{
    norla::CProxySettings settings;
    settings.setProxyForURLScheme("HtTp", "p");
    EXPECT_EQ(settings.getProxyForURLScheme("hTTP"), "p");
}

TEST(CProxySettingsTest, removesAProxyByAnEmptyText)
{
    norla::CProxySettings settings;
    settings.setProxyForURLScheme("http", "p");
    settings.setProxyForURLScheme("HTTP", "");
    EXPECT_TRUE(proxiesOf(settings).empty());
}

TEST(CProxySettingsTest, addsAHostOnce)
{
    norla::CProxySettings settings;
    settings.addDirectConnectHost("Host");
    settings.addDirectConnectHost("hOST");
    EXPECT_EQ(hostsOf(settings), Texts{"host"});
    EXPECT_TRUE(settings.isDirectConnectHost("HOST"));
}

TEST(CProxySettingsTest, removesAHost)
{
    norla::CProxySettings settings;
    settings.addDirectConnectHost("host");
    settings.removeDirectConnectHost("HOST");
    settings.removeDirectConnectHost("unknown");
    EXPECT_FALSE(settings.isDirectConnectHost("host"));
}

TEST(CProxySettingsTest, readsAListOfHosts)
{
    norla::CProxySettings settings;
    settings.addDirectConnectHostsFromString("B; a,,c\td");
    EXPECT_EQ(hostsOf(settings), (Texts{"a", "b", "c", "d"}));
}

TEST(CProxySettingsTest, appendsToTheListsItFills)
{
    norla::CProxySettings settings;
    settings.setProxyForURLScheme("http", "p");
    settings.addDirectConnectHost("host");
    Texts texts{"first"};
    settings.getProxyURLSchemes(texts);
    settings.getDirectConnectHosts(texts);
    EXPECT_EQ(texts, (Texts{"first", "http", "host"}));
}

TEST(CProxySettingsTest, isEmptyAfterClear)
{
    norla::CProxySettings settings;
    settings.addProxiesFromString("p");
    settings.addDirectConnectHost("host");
    settings.clear();
    EXPECT_TRUE(proxiesOf(settings).empty());
    EXPECT_TRUE(hostsOf(settings).empty());
}

TEST(CProxySettingsTest, isEmptyAfterInitFromUserSettings)
{
    norla::CProxySettings settings;
    settings.addProxiesFromString("p");
    settings.initFromUserSettings();
    EXPECT_TRUE(proxiesOf(settings).empty());
}

TEST(CProxySettingsTest, hasOneInstanceForTheUser)
{
    EXPECT_EQ(norla::CProxySettings::getUserSettings().get(), norla::CProxySettings::getUserSettings().get());
    EXPECT_TRUE(proxiesOf(*norla::CProxySettings::getUserSettings()).empty());
    EXPECT_TRUE(norla::CProxySettings::globalInstanceGuard());
}

TEST(CProxySettingsTest, showsReadersAllOfAListOrNothing)
{
    norla::CProxySettings settings;
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 8; ++i) {
        readers.emplace_back([&settings, &stop] {
            while (!stop) {
                const size_t count = hostsOf(settings).size();
                EXPECT_TRUE(count == 0 || count == 3) << count;
                settings.getProxyForURL("http://a/");
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        settings.addDirectConnectHostsFromString("a b c");
        settings.addProxiesFromString("p:1");
        settings.clear();
    }
    stop = true;
    for (std::thread& reader : readers)
        reader.join();
}

} // namespace
