#include "norla/core/CRedirects.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/CSentHeaders.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using norla::CRequestURL;
using Texts = std::vector<std::string>;

class CRedirectsTest : public testing::Test {
protected:
    /// The options that the beginning of a transfer sets.
    Texts begin(const char* url = "http://host/")
    {
        m_calls.takeOptions();
        m_redirects.begin(CRequestURL(kx::String::fromLatin1(url)));
        return m_calls.takeOptions();
    }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CSentHeaders m_headers{m_handle};
    norla::CRedirects m_redirects{m_handle, m_headers};
    const Texts m_both = {"REDIR_PROTOCOLS_STR=http,https"};
};

TEST_F(CRedirectsTest, setNothingWithoutRules)
{
    m_redirects.noticeText(CURLOPT_COOKIE, "a=1");
    EXPECT_EQ(begin(), Texts());
    EXPECT_FALSE(m_redirects.wantsToBeAsked());
    EXPECT_EQ(m_redirects.getRefusal(CURLE_UNSUPPORTED_PROTOCOL, "ftp://host/"), "");
}

TEST_F(CRedirectsTest, leadToHTTPAndHTTPS)
{
    m_redirects.setRules(true, false);
    EXPECT_EQ(begin("http://host/"), m_both);
    EXPECT_EQ(begin("host/"), m_both);
    EXPECT_TRUE(m_redirects.wantsToBeAsked());
}

TEST_F(CRedirectsTest, leadFromHTTPSToHTTPS)
{
    m_redirects.setRules(true, false);
    EXPECT_EQ(begin("HTTPS://host/"), Texts{"REDIR_PROTOCOLS_STR=https"});
    EXPECT_EQ(begin("http://host/"), m_both);
}

TEST_F(CRedirectsTest, leadWhereverTheyDidWhenTheRuleIsTakenBack)
{
    m_redirects.setRules(true, false);
    begin("https://host/");
    m_calls.takeOptions();
    m_redirects.setRules(false, false);
    EXPECT_EQ(m_calls.takeOptions(), Texts{"REDIR_PROTOCOLS_STR=http,https,ftp,ftps"});
    EXPECT_EQ(begin(), Texts());
}

TEST_F(CRedirectsTest, leadWhereTheApplicationSaysAfterwards)
{
    m_redirects.setRules(true, false);
    m_redirects.noticeText(CURLOPT_REDIR_PROTOCOLS_STR, "ftp");
    EXPECT_EQ(begin(), Texts());
    m_redirects.setRules(true, false);
    EXPECT_EQ(begin(), m_both);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    m_redirects.noticeNumber(CURLOPT_REDIR_PROTOCOLS, CURLPROTO_FTP);
#pragma GCC diagnostic pop
    EXPECT_EQ(begin(), Texts());
}

TEST_F(CRedirectsTest, setNothingForSecretsBeforeTheyAreLeftBehind)
{
    m_redirects.setRules(false, true);
    m_redirects.noticeText(CURLOPT_COOKIE, "a=1");
    EXPECT_EQ(begin(), Texts());
    EXPECT_TRUE(m_redirects.wantsToBeAsked());
}

TEST_F(CRedirectsTest, areAnswersOfTheirOwnClassAlone)
{
    m_redirects.setRules(true, false);
    m_handle.setText(CURLOPT_URL, "http://host/");
    begin("http://host/");
    m_redirects.beforeRequest();
    const auto isRefused = [this](int status) {
        m_calls.setInfo(CURLINFO_RESPONSE_CODE, status);
        return !m_redirects.getRefusal(CURLE_UNSUPPORTED_PROTOCOL, "ftp://host/").isEmpty();
    };
    for (const int status : {300, 399})
        EXPECT_TRUE(isRefused(status)) << status;
    for (const int status : {299, 400})
        EXPECT_FALSE(isRefused(status)) << status;
}

TEST_F(CRedirectsTest, forgetTheirRulesAtAReset)
{
    m_redirects.setRules(true, true);
    m_redirects.forgetOptions();
    EXPECT_EQ(begin(), Texts());
    EXPECT_FALSE(m_redirects.wantsToBeAsked());
}

} // namespace
