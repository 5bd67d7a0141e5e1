// Which options the safe defaults set, line by line; what comes of them is CSafeDefaultsTest's.
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CSSHOptions.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/core/CTLSOptions.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/CTestCertificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using norla::CSafeDefaults;
using testing::Contains;
using testing::Not;
using testing::StartsWith;
using Texts = std::vector<std::string>;

constexpr CSafeDefaults nothing{.redirectsStaySafe = false,
    .maxRedirects = -1,
    .secretsStayWithTheirHost = false,
    .verifyTLS = false,
    .verifySSH = false,
    .expectFrom = 0,
    .maxReceiveBuffer = 0,
    .maxHeaders = 0,
    .judgeByProtocol = false};

class CNetRequestSafetyTest : public testing::Test {
protected:
    Texts optionsOf(const CSafeDefaults& defaults)
    {
        m_calls.takeOptions();
        m_request->setSafeDefaults(defaults);
        return m_calls.takeOptions();
    }

    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
    support::CCurlCalls m_calls;
};

TEST_F(CNetRequestSafetyTest, setsNothingWhereEveryLineIsSwitchedOff)
{
    EXPECT_EQ(optionsOf(nothing), Texts());
}

TEST_F(CNetRequestSafetyTest, limitsRedirects)
{
    CSafeDefaults defaults = nothing;
    defaults.maxRedirects = 0;
    EXPECT_EQ(optionsOf(defaults), Texts{"MAXREDIRS=0"});
}

TEST_F(CNetRequestSafetyTest, takesBackThatLoginsGoToEveryHost)
{
    CSafeDefaults defaults = nothing;
    defaults.secretsStayWithTheirHost = true;
    EXPECT_EQ(optionsOf(defaults), Texts{"UNRESTRICTED_AUTH=0"});
}

TEST_F(CNetRequestSafetyTest, verifiesTLSOfServersAndProxies)
{
    CSafeDefaults defaults = nothing;
    defaults.verifyTLS = true;
    m_request->setSSLVerifyPeer(false);
    const Texts options = optionsOf(defaults);
    const std::string version = std::to_string(CURL_SSLVERSION_TLSv1_2);
    for (const std::string& option : {"SSLVERSION=" + version, std::string("SSL_VERIFYPEER=1"),
             std::string("SSL_VERIFYHOST=2"), "PROXY_SSLVERSION=" + version, std::string("PROXY_SSL_VERIFYPEER=1"),
             std::string("PROXY_SSL_VERIFYHOST=2")})
        EXPECT_THAT(options, Contains(option));
    EXPECT_THAT(options, Not(Contains(StartsWith("CAINFO"))));
}

TEST_F(CNetRequestSafetyTest, keepsWhoIsBelievedInTLS)
{
    m_request->setTLSOptions({.leastVersion = norla::TLSVersion::TLS1_3,
        .rootsFile = norla::CTLSOptions::Path::fromBytes(support::CTestCertificates::get().caFile().string()),
        .verifyHostName = false});
    CSafeDefaults defaults = nothing;
    defaults.verifyTLS = true;
    const Texts options = optionsOf(defaults);
    EXPECT_THAT(options, Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_3)));
    EXPECT_THAT(options, Contains("SSL_VERIFYHOST=2"));
    EXPECT_THAT(options, Not(Contains(StartsWith("CAINFO"))));
}

TEST_F(CNetRequestSafetyTest, judgesSSHServersWithoutTouchingTheLogin)
{
    CSafeDefaults defaults = nothing;
    defaults.verifySSH = true;
    const Texts options = optionsOf(defaults);
    EXPECT_THAT(options, Contains("SSH_HOSTKEYFUNCTION=set"));
    EXPECT_THAT(options, Not(Contains(StartsWith("SSH_PRIVATE_KEYFILE"))));
    EXPECT_THAT(options, Not(Contains(StartsWith("SSH_AUTH_TYPES"))));
}

TEST_F(CNetRequestSafetyTest, keepsTheKnownSSHHostsThatWereSet)
{
    m_request->setSSHKnownHostsPath("/file");
    CSafeDefaults defaults = nothing;
    defaults.verifySSH = true;
    EXPECT_EQ(optionsOf(defaults), Texts());
}

TEST_F(CNetRequestSafetyTest, keepsTheSSHOptionsThatWereSet)
{
    m_request->setSSHOptions({.fingerprint = "SHA256:47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU"});
    CSafeDefaults defaults = nothing;
    defaults.verifySSH = true;
    EXPECT_EQ(optionsOf(defaults), Texts());
}

TEST_F(CNetRequestSafetyTest, judgesSSHServersWhereWhatWasSetIsTakenBack)
{
    CSafeDefaults defaults = nothing;
    defaults.verifySSH = true;
    m_request->setSSHKnownHostsPath("/file");
    m_request->setOptionPtr(CURLOPT_SSH_KNOWNHOSTS, nullptr);
    EXPECT_THAT(optionsOf(defaults), Contains("SSH_HOSTKEYFUNCTION=set"));
    m_request->setOptionPtr(CURLOPT_SSH_HOSTKEYFUNCTION, nullptr);
    EXPECT_THAT(optionsOf(defaults), Contains("SSH_HOSTKEYFUNCTION=set"));
}

TEST_F(CNetRequestSafetyTest, judgesSSHServersWhereLibcurlHasRefusedWhatWasSet)
{
    CSafeDefaults defaults = nothing;
    defaults.verifySSH = true;
    m_calls.failOption(CURLOPT_SSH_KNOWNHOSTS);
    EXPECT_THROW(m_request->setSSHKnownHostsPath("/file"), norla::CCURLError);
    m_calls.succeed();
    EXPECT_THAT(optionsOf(defaults), Contains("SSH_HOSTKEYFUNCTION=set"));
}

TEST_F(CNetRequestSafetyTest, keepsANewerVersionOfTLSThatIsDemandedByAnOption)
{
    const std::string version = std::to_string(CURL_SSLVERSION_TLSv1_3);
    CSafeDefaults defaults = nothing;
    defaults.verifyTLS = true;
    m_request->setOptionInt(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_3);
    m_request->setOptionInt(CURLOPT_PROXY_SSLVERSION, int{CURL_SSLVERSION_TLSv1_3} | int{CURL_SSLVERSION_MAX_TLSv1_3});
    const Texts options = optionsOf(defaults);
    EXPECT_THAT(options, Contains("SSLVERSION=" + version));
    EXPECT_THAT(options, Contains("PROXY_SSLVERSION=" + version));
    m_request->reset();
    EXPECT_THAT(optionsOf(defaults), Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_2)));
}

TEST_F(CNetRequestSafetyTest, keepsNoVersionOfTLSThatWasDemandedBeforeTheTLSOptions)
{
    CSafeDefaults defaults = nothing;
    defaults.verifyTLS = true;
    m_request->setOptionInt(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_3);
    m_request->setTLSOptions({.leastVersion = norla::TLSVersion::TLS1_2});
    EXPECT_THAT(optionsOf(defaults), Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_2)));
}

TEST_F(CNetRequestSafetyTest, leavesTheNextRequestPlainAfterAReset)
{
    m_request->setSafeDefaults();
    m_request->reset();
    m_calls.takeOptions();
    m_request->resetForPerform();
    EXPECT_EQ(m_calls.takeOptions(), Texts());
}

TEST_F(CNetRequestSafetyTest, setsTheOptionsOfANewRequestAfterAReset)
{
    m_calls.takeOptions();
    m_request->setDefaultOptions();
    const Texts plain = m_calls.takeOptions();
    m_request->setSafeDefaults();
    m_request->resetForPerform();
    m_calls.takeOptions();
    m_request->reset();
    const Texts options = m_calls.takeOptions();
    ASSERT_GE(options.size(), plain.size());
    EXPECT_EQ(Texts(options.end() - static_cast<std::ptrdiff_t>(plain.size()), options.end()), plain);
}

TEST_F(CNetRequestSafetyTest, saysWhatLibcurlRefuses)
{
    m_calls.failOption(CURLOPT_MAXREDIRS);
    EXPECT_THROW(m_request->setSafeDefaults(), norla::CCURLError);
}

} // namespace
