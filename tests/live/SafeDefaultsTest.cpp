// Whom the safe defaults believe, and whom everybody believes without them, with nginx and OpenSSH.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CSSHOptions.h"
#include "norla/core/CSafeDefaults.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"
#include "tests/support/pathOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace {

using live::failureOf;
using live::messageOf;
using norla::CNetRequest;
using support::pathOf;
using testing::HasSubstr;

kx::P<kx::CError> failureInTheBackground(CNetRequest& request)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    thread->addRequest(&request);
    EXPECT_TRUE(request.waitAsyncDone(60'000));
    return support::errorOf([&request] { request.checkAsyncResult(); });
}

class SafeDefaultsTLSTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    /// Believes everybody, as far as options can say so.
    static kx::P<CNetRequest> carelessRequestFor(const std::string& url)
    {
        auto request = live::requestFor(url);
        request->setSSLVerifyPeer(false);
        request->setOptionInt(CURLOPT_SSL_VERIFYHOST, 0);
        request->setOptionInt(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_0);
        request->setOptionString(CURLOPT_SSL_CIPHER_LIST, "ALL:@SECLEVEL=0"); // the system's OpenSSL demands more
        return request;
    }

    /// With the safe defaults, and without the line about TLS.
    static kx::P<kx::CError> expectTheDifference(const std::string& url, bool believesAuthority)
    {
        const auto careless = carelessRequestFor(url);
        careless->setSafeDefaults({.verifyTLS = false});
        EXPECT_EQ(messageOf(*careless), "success");
        for (const auto failure : {&failureOf, &failureInTheBackground}) {
            const auto request = carelessRequestFor(url);
            if (believesAuthority)
                request->setRootCertBundlePath(pathOf(support::CTestCertificates::get().caFile()));
            request->setSafeDefaults();
            if (const auto error = failure(*request); !error || failure == &failureInTheBackground)
                return error;
        }
        return nullptr;
    }

    const support::CNginxServer& server() const { return *s_server; }

private:
    static std::unique_ptr<support::CNginxServer> s_server;
};

std::unique_ptr<support::CNginxServer> SafeDefaultsTLSTest::s_server;

TEST_F(SafeDefaultsTLSTest, believeAServerOfAKnownIssuer)
{
    const auto request = carelessRequestFor(server().httpsURL("/digits.txt"));
    request->setRootCertBundlePath(pathOf(support::CTestCertificates::get().caFile()));
    request->setSafeDefaults();
    EXPECT_EQ(messageOf(*request), "success");
}

TEST_F(SafeDefaultsTLSTest, believeNoUnknownIssuer)
{
    const auto error = expectTheDifference(server().httpsURL("/digits.txt"), false);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_THAT(error->getMessage().toUTF8(), HasSubstr("issued by \"CN = test authority\""));
}

TEST_F(SafeDefaultsTLSTest, believeNoOtherHost)
{
    const auto error = expectTheDifference(server().wrongHostURL("/digits.txt"), true);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_THAT(error->getMessage().toUTF8(), HasSubstr("wrong.example"));
}

TEST_F(SafeDefaultsTLSTest, speakNoOldTLS)
{
    const auto error = expectTheDifference(server().oldTLSURL("/digits.txt"), true);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SSL_CONNECT_ERROR);
    EXPECT_THAT(error->getMessage().toUTF8(), HasSubstr("TLS 1.2 or later is demanded"));
}

TEST_F(SafeDefaultsTLSTest, areGoneAfterAReset)
{
    const auto request = carelessRequestFor(server().httpsURL("/digits.txt"));
    request->setSafeDefaults();
    EXPECT_NE(messageOf(*request), "success");
    request->reset();
    request->setURL(kx::String::fromUTF8(server().wrongHostURL("/digits.txt")));
    request->setSSLVerifyPeer(false);
    request->setOptionInt(CURLOPT_SSL_VERIFYHOST, 0);
    EXPECT_EQ(messageOf(*request), "success");
}

/// A person's home with a file of known hosts, which is this process's as long as it lives.
class CHome {
public:
    CHome()
    {
        if (const char* const before = std::getenv("HOME"))
            m_before = before;
        std::filesystem::create_directory(m_folder.path() / ".ssh");
        setenv("HOME", m_folder.path().c_str(), 1);
    }
    CHome(const CHome&) = delete;
    CHome& operator=(const CHome&) = delete;
    ~CHome()
    {
        if (m_before)
            setenv("HOME", m_before->c_str(), 1);
        else
            unsetenv("HOME");
    }

    void know(const std::string& lines) { m_folder.write(".ssh/known_hosts", lines); }

private:
    const support::CTemporaryFolder m_folder;
    std::optional<std::string> m_before;
};

class SafeDefaultsSSHTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CSSHServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    kx::P<CNetRequest> request(const norla::CSafeDefaults& defaults = {}) const
    {
        auto request = live::requestFor(s_server->url((s_server->root() / "digits.txt").string()));
        request->setUserName(kx::String::fromUTF8(s_server->userName()));
        request->setOptionString(
            CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(s_server->privateKeyFile().string()));
        request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(s_server->publicKeyFile().string()));
        request->setSafeDefaults(defaults);
        return request;
    }

    const support::CSSHServer& server() const { return *s_server; }
    CHome m_home;

private:
    static std::unique_ptr<support::CSSHServer> s_server;
};

std::unique_ptr<support::CSSHServer> SafeDefaultsSSHTest::s_server;

TEST_F(SafeDefaultsSSHTest, refuseAnUnknownServer)
{
    for (const auto failure : {&failureOf, &failureInTheBackground}) {
        const auto error = failure(*request());
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION) << error->what();
    }
}

TEST_F(SafeDefaultsSSHTest, believeAnUnknownServerWithoutThatLine)
{
    EXPECT_EQ(messageOf(*request({.verifySSH = false})), "success");
}

TEST_F(SafeDefaultsSSHTest, believeAServerThatTheUserKnows)
{
    m_home.know(server().knownHostsLine());
    EXPECT_EQ(messageOf(*request()), "success");
    EXPECT_EQ(failureInTheBackground(*request()), nullptr);
}

TEST_F(SafeDefaultsSSHTest, believeWhomTheOptionsKnow)
{
    const auto known = request();
    known->setSSHOptions({.fingerprint = kx::String::fromUTF8(server().fingerprint()),
        .privateKeyFile = pathOf(server().privateKeyFile())});
    known->setSafeDefaults();
    EXPECT_EQ(messageOf(*known), "success");
}

TEST_F(SafeDefaultsSSHTest, areGoneAfterAReset)
{
    const auto reset = request();
    EXPECT_NE(messageOf(*reset), "success");
    const kx::String url = reset->getURL();
    reset->reset();
    reset->setURL(url);
    reset->setUserName(kx::String::fromUTF8(server().userName()));
    reset->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(server().privateKeyFile().string()));
    reset->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(server().publicKeyFile().string()));
    EXPECT_EQ(messageOf(*reset), "success");
}

} // namespace
