#include "norla/core/CCookieJar.h"

#include "norla/async/CAsyncNetRequestManager.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"
#include "tests/support/files.h"
#include "tests/support/libcurlWords.h"
#include "tests/support/waitUntil.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <future>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using norla::CCookieJar;
using Texts = std::vector<std::string>;

const std::string lasting = "Max-Age=1000000"; // newer libcurls let none last longer than 400 days

/// Requests go through a proxy, so that servers can have any name.
class CCookieJarTest : public CRequestFixture {
protected:
    CCookieJarTest() { useJar(); }

    void useJar()
    {
        request().setProxy(kx::String::fromUTF8(server().url()));
        request().setCookieJar(m_jar.get());
    }

    static std::string okWithCookies(const Texts& cookies)
    {
        std::string headers;
        for (const std::string& cookie : cookies)
            headers += "Set-Cookie: " + cookie + "\r\n";
        return ok("", headers);
    }

    /// Lets the server answer requests for these URLs, the first of them with cookies.
    void performAll(const Texts& cookies, const Texts& urls)
    {
        support::CScript& script = answer(okWithCookies(cookies));
        for (size_t i = 1; i < urls.size(); ++i)
            script.readHead().send(ok(""));
        for (const std::string& url : urls) {
            request().setURL(kx::String::fromUTF8(url));
            request().perform();
        }
    }

    /// What "Cookie" said in each request; "-" where it was not sent.
    Texts sentCookies() { return cookiesIn(received()); }

    static Texts cookiesIn(std::string requests)
    {
        Texts found;
        for (size_t end = 0; (end = requests.find("\r\n\r\n")) != std::string::npos; requests.erase(0, end + 4)) {
            const std::string name = "\r\nCookie: ";
            const size_t start = requests.find(name);
            found.push_back(start < end
                    ? requests.substr(start + name.size(), requests.find("\r\n", start + 2) - start - name.size())
                    : "-");
        }
        return found;
    }

    /// "name=value" of each cookie of the jar, in the order of the alphabet.
    Texts inJar() const
    {
        Texts cookies;
        for (const norla::CCookie& cookie : m_jar->getCookies())
            cookies.push_back((cookie.name + "=" + cookie.value).toUTF8());
        std::sort(cookies.begin(), cookies.end());
        return cookies;
    }

    CCookieJar::Path path(const std::string& name = "cookies") const
    {
        return CCookieJar::Path::fromBytes((m_folder.path() / name).native());
    }

    CCookieJar::Path write(const std::string& bytes) const
    {
        m_folder.write("cookies", bytes);
        return path();
    }

    kx::String loadError(const std::string& bytes)
    {
        return support::messageOf([&] { m_jar->load(write(bytes)); });
    }

    kx::String named(const kx::String& message) const { return "The file '" + path().toString() + "' " + message; }

    void countProgressIn(int& calls)
    {
        const auto count = [](void* data, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
            ++*static_cast<int*>(data);
            return 0;
        };
        request().setOptionPtr(
            CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(static_cast<curl_xferinfo_callback>(count)));
        request().setOptionPtr(CURLOPT_XFERINFODATA, &calls);
    }

    const support::CTemporaryFolder m_folder;
    const kx::P<CCookieJar> m_jar = kx::newObj<CCookieJar>();
};

TEST_F(CCookieJarTest, isEmptyAtFirst)
{
    EXPECT_EQ(m_jar->getCookies().size(), 0U);
}

TEST_F(CCookieJarTest, sendsBackWhatTheServerHasSet)
{
    performAll({"a=b"}, {"http://one.test/", "http://one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"-", "a=b"}));
}

TEST_F(CCookieJarTest, isSharedByRequests)
{
    performAll({"a=b"}, {"http://one.test/"});
    support::CScriptedServer another;
    another.onConnection().readHead().send(ok(""));
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setProxy(kx::String::fromUTF8(another.url()));
    request->setCookieJar(m_jar.get());
    request->setURL("http://one.test/");
    request->perform();
    another.join();
    EXPECT_EQ(cookiesIn(another.received(0)), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, isSharedByRequestsInTheBackground)
{
    answer(okWithCookies({"a=b"}));
    request().setURL("http://one.test/");
    const auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    manager->addRequest(&request());
    while (!request().isAsyncDone()) {
        manager->waitForEvents(100);
        manager->handleEvents(nullptr);
    }
    request().checkAsyncResult();
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, sendsNoCookieToAnotherServer)
{
    performAll({"a=b", "c=d; Domain=other.test"}, {"http://one.test/", "http://other.test/", "http://sub.one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"-", "-", "-"}));
}

TEST_F(CCookieJarTest, sendsACookieOfADomainToItsSubdomains)
{
    performAll({"a=b; Domain=one.test"}, {"http://www.one.test/", "http://sub.one.test/", "http://one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"-", "a=b", "a=b"}));
}

TEST_F(CCookieJarTest, takesNoCookieForAWholeRegistry)
{
    performAll({"a=b; Domain=co.uk", "c=d; Domain=uk", "e=f; Domain=github.io"},
        {"http://one.co.uk/", "http://two.co.uk/", "http://two.github.io/"});
    EXPECT_EQ(sentCookies(), Texts({"-", "-", "-"}));
}

TEST_F(CCookieJarTest, sendsACookieOfAPathThereAlone)
{
    performAll({"a=b; Path=/in"}, {"http://one.test/in/", "http://one.test/in/side", "http://one.test/out"});
    EXPECT_EQ(sentCookies(), Texts({"-", "a=b", "-"}));
}

TEST_F(CCookieJarTest, sendsNoSecureCookieInTheClear)
{
    m_jar->load(write("one.test\tFALSE\t/\tTRUE\t0\ta\tb\none.test\tFALSE\t/\tFALSE\t0\tc\td\n"));
    performAll({}, {"http://one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"c=d"}));
}

TEST_F(CCookieJarTest, tellsItsCookies)
{
    const auto inAMillionSeconds = [] { return kx::CTime(kx::CTime::now().getMicroseconds() + 1'000'000'000'000); };
    const kx::CTime before(inAMillionSeconds().getMicroseconds() - 1'000'000); // it is told in whole seconds
    performAll({"a=b; Domain=one.test; Path=/in; HttpOnly; " + lasting}, {"http://www.one.test/in/"});
    ASSERT_EQ(m_jar->getCookies().size(), 1U);
    const norla::CCookie cookie = m_jar->getCookies()[0];
    const norla::CCookie expected = {.domain = "one.test",
        .hasSubdomains = true,
        .path = "/in",
        .name = "a",
        .value = "b",
        .expiry = cookie.expiry,
        .isHTTPOnly = true};
    EXPECT_EQ(cookie, expected);
    EXPECT_GT(cookie.expiry, before);
    EXPECT_LE(cookie.expiry, inAMillionSeconds());
}

TEST_F(CCookieJarTest, dropsAllCookiesOnDemand)
{
    performAll({"a=b"}, {"http://one.test/"});
    m_jar->clear();
    EXPECT_EQ(inJar(), Texts());
}

TEST_F(CCookieJarTest, keepsItsCookiesWhenARequestIsReset)
{
    performAll({"a=b"}, {"http://one.test/"});
    request().reset();
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, keepsItsCookiesWhenARequestWithCookiesOfItsOwnIsReset)
{
    request().setOptionString(CURLOPT_COOKIELIST, "Set-Cookie: c=d; Domain=one.test");
    performAll({"a=b"}, {"http://one.test/"});
    request().reset();
    EXPECT_EQ(inJar(), Texts({"a=b", "c=d"}));
}

TEST_F(CCookieJarTest, isNotUsedAfterAReset)
{
    performAll({"a=b"}, {"http://one.test/"});
    support::CScriptedServer another;
    another.onConnection().readHead().send(okWithCookies({"c=d"})).readHead().send(ok(""));
    request().reset();
    request().setProxy(kx::String::fromUTF8(another.url()));
    request().setURL("http://one.test/");
    request().perform();
    request().perform();
    another.join();
    EXPECT_EQ(cookiesIn(another.received(0)), Texts({"-", "-"}));
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, isNotUsedAfterNull)
{
    request().setCookieJar(nullptr);
    performAll({"a=b"}, {"http://one.test/", "http://one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"-", "-"}));
    EXPECT_EQ(inJar(), Texts());
}

TEST_F(CCookieJarTest, takesThePlaceOfAnother)
{
    const auto second = kx::newObj<CCookieJar>();
    performAll({"a=b"}, {"http://one.test/"});
    request().setCookieJar(second.get());
    EXPECT_EQ(second->getCookies().size(), 0U);
    request().setCookieJar(m_jar.get());
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

/// Tells when it goes.
class CMortalJar : public CCookieJar {
public:
    explicit CMortalJar(std::shared_ptr<bool> isGone)
        : m_isGone(std::move(isGone))
    {
    }
    ~CMortalJar() override { *m_isGone = true; }

private:
    const std::shared_ptr<bool> m_isGone;
};

TEST_F(CCookieJarTest, isKeptByTheRequestUntilAReset)
{
    const auto isGone = std::make_shared<bool>(false);
    kx::P<CCookieJar> jar = kx::newObj<CMortalJar>(isGone);
    jar->load(write("one.test\tFALSE\t/\tFALSE\t0\ta\tb\n"));
    request().setCookieJar(jar.get());
    jar = nullptr;
    EXPECT_FALSE(*isGone);
    performAll({}, {"http://one.test/"});
    EXPECT_EQ(sentCookies(), Texts({"a=b"}));
    request().reset();
    EXPECT_TRUE(*isGone);
}

TEST_F(CCookieJarTest, isReadAgainAsItWasWritten)
{
    performAll(
        {"a=b; Domain=one.test; " + lasting, "c=\xC3\xBC; HttpOnly; Path=/x; " + lasting}, {"http://one.test/x"});
    m_jar->save(path());
    const auto again = kx::newObj<CCookieJar>();
    EXPECT_EQ(again->load(path()), 0U);
    const auto sorted = [](kx::TArray<norla::CCookie> cookies) {
        std::sort(
            cookies.begin(), cookies.end(), [](const auto& one, const auto& other) { return one.name < other.name; });
        return cookies;
    };
    EXPECT_EQ(sorted(again->getCookies()), sorted(m_jar->getCookies()));
    EXPECT_EQ(again->getCookies().size(), 2U);
}

TEST_F(CCookieJarTest, leavesCookiesOfTheSessionOutOfItsFile)
{
    performAll({"a=b; " + lasting, "c=d"}, {"http://one.test/"});
    m_jar->save(path());
    const Texts lines = support::splitLines(m_folder.read("cookies"));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "# Netscape HTTP Cookie File");
    EXPECT_TRUE(lines[1].starts_with("one.test\tFALSE\t/\tFALSE\t"));
    EXPECT_TRUE(lines[1].ends_with("\ta\tb"));
}

TEST_F(CCookieJarTest, keepsCookiesOfTheSessionInItsFileOnDemand)
{
    performAll({"c=d"}, {"http://one.test/"});
    m_jar->save(path(), CCookieJar::SessionCookies::Keep);
    EXPECT_EQ(m_folder.read("cookies"), "# Netscape HTTP Cookie File\none.test\tFALSE\t/\tFALSE\t0\tc\td\n");
}

TEST_F(CCookieJarTest, writesAFileForItsOwnerAlone)
{
    const mode_t before = umask(0);
    m_jar->save(path());
    umask(before);
    EXPECT_EQ(fs::status(m_folder.path() / "cookies").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(CCookieJarTest, closesAFileThatWasOpenToOthers)
{
    write("");
    fs::permissions(m_folder.path() / "cookies", fs::perms::all);
    m_jar->save(path());
    EXPECT_EQ(fs::status(m_folder.path() / "cookies").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(CCookieJarTest, namesTheFileThatCannotBeWritten)
{
    EXPECT_EQ(support::messageOf([this] { m_jar->save("/nowhere/cookies"); }),
        "The file '/nowhere/cookies' cannot be written: No such file or directory.");
}

TEST_F(CCookieJarTest, namesTheFileThatIsNotThere)
{
    EXPECT_EQ(support::messageOf([this] { m_jar->load(path()); }), named("cannot be read: No such file or directory."));
    EXPECT_NE(support::messageOf([this] { m_jar->load("/"); }), "(no error)");
}

TEST_F(CCookieJarTest, addsToWhatIsThere)
{
    m_jar->load(write("one.test\tFALSE\t/\tFALSE\t0\ta\tb\none.test\tFALSE\t/\tFALSE\t0\tc\td\n"));
    m_jar->load(write("one.test\tFALSE\t/\tFALSE\t0\ta\tnew\n"));
    EXPECT_EQ(inJar(), Texts({"a=new", "c=d"}));
}

TEST_F(CCookieJarTest, leavesOutWhatHasExpired)
{
    EXPECT_EQ(m_jar->load(write("one.test\tFALSE\t/\tFALSE\t1000000000\ta\tb\n")), 0U);
    EXPECT_EQ(inJar(), Texts());
}

TEST_F(CCookieJarTest, skipsLinesThatAreNoCookies)
{
    const std::string good = "one.test\tFALSE\t/\tFALSE\t0\ta\tb";
    EXPECT_EQ(m_jar->load(write("# a comment\n\nALL\nSet-Cookie: x=y\n" + good + "\r\n" + std::string(9000, 'x') + "\n"
                  + good + std::string(9000, 'x') + "\nFLUSH")),
        5U);
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, keepsItsCookiesWhenALoadedLineIsACommandOfLibcurl)
{
    m_jar->load(write("one.test\tFALSE\t/\tFALSE\t0\ta\tb\n"));
    EXPECT_EQ(loadError("ALL\n"), named("is no cookie file: none of its lines is a cookie."));
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, refusesAFileOfBytes)
{
    std::string bytes;
    for (int i = 0; i < 100'000; ++i)
        bytes += static_cast<char>(i * 31 % 251);
    EXPECT_EQ(loadError(bytes), named("is no cookie file: none of its lines is a cookie."));
}

TEST_F(CCookieJarTest, takesAnEmptyFile)
{
    EXPECT_EQ(m_jar->load(write("")), 0U);
    EXPECT_EQ(m_jar->load(write("# Netscape HTTP Cookie File\n\n")), 0U);
}

TEST_F(CCookieJarTest, refusesAFileOfAGibibyte)
{
    write("");
    fs::resize_file(m_folder.path() / "cookies", 1 << 30); // takes no space on the disk
    EXPECT_NE(support::messageOf([this] { m_jar->load(path()); }).find(path().toString()), kx::String::npos);
}

TEST_F(CCookieJarTest, refusesAFileOfTooManyCookies)
{
    std::string lines = "one.test\tFALSE\t/\tFALSE\t0\tfirst\tx\n";
    for (int i = 0; i < 10'000; ++i) // libcurl compares those of one host with each other
        lines += "host" + std::to_string(i) + ".test\tFALSE\t/\tFALSE\t0\tname\tx\n";
    EXPECT_EQ(loadError(lines), named("holds more than 10000 cookies."));
    EXPECT_EQ(inJar(), Texts());
    EXPECT_EQ(m_jar->load(write(lines.substr(lines.find('\n') + 1))), 0U);
    EXPECT_EQ(m_jar->getCookies().size(), 10'000U);
}

TEST_F(CCookieJarTest, isUsedByManyThreads)
{
    constexpr int threadCount = 4;
    constexpr int transfers = 20;
    const auto transferOften = [this](int number) {
        support::CScriptedServer proxy;
        support::CScript& script = proxy.onConnection();
        const std::string name = "n" + std::to_string(number) + "-";
        for (int i = 0; i < transfers; ++i)
            script.readHead().send(okWithCookies({name + std::to_string(i) + "=x"}));
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setProxy(kx::String::fromUTF8(proxy.url()));
        request->setCookieJar(m_jar.get());
        request->setURL("http://one.test/");
        for (int i = 0; i < transfers; ++i) {
            request->perform();
            m_jar->getCookies();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back(transferOften, i);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_jar->getCookies().size(), static_cast<size_t>(threadCount * transfers));
}

// The request whose server waits has been sent, with the jar's cookies.
TEST_F(CCookieJarTest, isFreeForOthersWhileAServerIsSlow)
{
    std::promise<void> othersHaveCome;
    server().onConnection().readHead().waitFor(othersHaveCome.get_future().share()).send(ok(""));
    request().setURL("http://one.test/");
    std::thread slow([this] { request().perform(); });
    EXPECT_TRUE(support::waitUntil([this] { return server().received(0).find("\r\n\r\n") != std::string::npos; }));
    support::CScriptedServer another;
    another.onConnection().readHead().send(okWithCookies({"a=b"}));
    const auto fast = kx::newObj<norla::CNetRequest>();
    fast->setProxy(kx::String::fromUTF8(another.url()));
    fast->setCookieJar(m_jar.get());
    fast->setURL("http://one.test/");
    fast->perform();
    othersHaveCome.set_value();
    slow.join();
    EXPECT_EQ(inJar(), Texts({"a=b"}));
}

TEST_F(CCookieJarTest, leavesTheApplicationItsProgress)
{
    int calls = 0;
    countProgressIn(calls);
    request().setOptionInt(CURLOPT_NOPROGRESS, 0);
    performAll({}, {"http://one.test/"});
    EXPECT_GT(calls, 0);
}

TEST_F(CCookieJarTest, callsNoProgressThatTheApplicationDoesNotWant)
{
    int calls = 0;
    countProgressIn(calls);
    performAll({}, {"http://one.test/"});
    EXPECT_EQ(calls, 0);
}

} // namespace
