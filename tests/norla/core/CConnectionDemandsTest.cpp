#include "norla/core/CConnectionDemands.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using norla::CConnectionDemands;
using norla::CRequestURL;
using Texts = std::vector<std::string>;

class CConnectionDemandsTest : public testing::Test {
protected:
    /// The options that the beginning of a transfer sets.
    Texts begin(const char* url, bool isManaged = false)
    {
        m_calls.takeOptions();
        m_demands.begin(CRequestURL(kx::String::fromLatin1(url)), isManaged);
        return m_calls.takeOptions();
    }

    const Texts m_fresh = {"FRESH_CONNECT=1"};
    const Texts m_any = {"FRESH_CONNECT=0"};
    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    CConnectionDemands m_demands{m_handle};
};

TEST_F(CConnectionDemandsTest, setNothingForWhoDemandsNothing)
{
    EXPECT_EQ(begin("sftp://host/"), Texts());
    EXPECT_EQ(begin("smtp://host/", true), Texts());
    EXPECT_FALSE(m_demands.wantsToBeAsked());
}

TEST_F(CConnectionDemandsTest, watchForTLS)
{
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_ALL);
    EXPECT_EQ(begin("smtp://host/"), Texts());
    EXPECT_TRUE(m_demands.wantsToBeAsked());
    EXPECT_FALSE(m_demands.wasRefused());
    EXPECT_FALSE(m_demands.canBeginAgain());
}

TEST_F(CConnectionDemandsTest, areForgottenAtAReset)
{
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_ALL);
    m_demands.noticeText(CURLOPT_SSH_KNOWNHOSTS, "file");
    m_demands.forgetOptions();
    EXPECT_EQ(begin("sftp://host/", true), Texts());
}

TEST_F(CConnectionDemandsTest, leaveNothingToTakeBackBehindAReset)
{
    m_demands.noticeText(CURLOPT_SSH_KNOWNHOSTS, "file");
    EXPECT_EQ(begin("sftp://host/", true), m_fresh);
    m_handle.reset();
    m_demands.forgetOptions();
    EXPECT_EQ(begin("sftp://host/", true), Texts());
}

TEST_F(CConnectionDemandsTest, ofSSHHoldForTheRequestsOwnConnections)
{
    m_demands.noticeText(CURLOPT_SSH_KNOWNHOSTS, "file");
    EXPECT_EQ(begin("sftp://host/"), Texts());
    EXPECT_EQ(begin("sftp://host/"), Texts());
}

TEST_F(CConnectionDemandsTest, ofSSHThatHaveChangedWantNewConnectionsFromThenOn)
{
    begin("sftp://host/");
    m_demands.noticeText(CURLOPT_SSH_KNOWNHOSTS, "file");
    EXPECT_EQ(begin("sftp://host/"), m_fresh);
    EXPECT_EQ(begin("scp://host/"), m_fresh);
    EXPECT_EQ(begin("http://host/"), m_any); // takes the option back
    EXPECT_EQ(begin("http://host/"), Texts());
}

TEST_F(CConnectionDemandsTest, ofSSHWantNewConnectionsInAManager)
{
    m_demands.noticeText(CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256, "abc");
    EXPECT_EQ(begin("sftp://host/", true), m_fresh);
}

TEST_F(CConnectionDemandsTest, ofSSHAreThereUntilTheyAreTakenBack)
{
    for (const CURLoption option :
        {CURLOPT_SSH_KNOWNHOSTS, CURLOPT_SSH_HOST_PUBLIC_KEY_MD5, CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256}) {
        m_demands.noticePointer(option, "text");
        EXPECT_TRUE(m_demands.wantsSSHHosts());
        m_demands.noticePointer(option, nullptr);
        EXPECT_FALSE(m_demands.wantsSSHHosts());
    }
    m_demands.noticeSSHTrust("these");
    m_demands.noticePointer(CURLOPT_SSH_HOSTKEYDATA, nullptr);
    EXPECT_TRUE(m_demands.wantsSSHHosts());
    m_demands.noticePointer(CURLOPT_SSH_HOSTKEYFUNCTION, nullptr);
    EXPECT_FALSE(m_demands.wantsSSHHosts());
}

TEST_F(CConnectionDemandsTest, takeTheApplicationsFreshConnectionsNotBack)
{
    m_demands.noticeNumber(CURLOPT_FRESH_CONNECT, 1);
    m_demands.noticeText(CURLOPT_SSH_HOST_PUBLIC_KEY_MD5, "abc");
    EXPECT_EQ(begin("sftp://host/", true), m_fresh);
    EXPECT_EQ(begin("http://host/", true), m_fresh);
}

TEST_F(CConnectionDemandsTest, ofTLSThatHaveChangedWantNewConnectionsWhereThoseAreUpgraded)
{
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_TRY);
    EXPECT_EQ(begin("smtp://host/"), Texts());
    m_demands.noticeTLSTrust("these");
    EXPECT_EQ(begin("smtp://host/"), m_fresh);
    EXPECT_EQ(begin("smtps://host/"), m_any);
    EXPECT_EQ(begin("ftp://host/"), m_fresh);
}

TEST_F(CConnectionDemandsTest, ofTLSHoldForTheRequestsOwnConnections)
{
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_TRY);
    m_demands.noticeTLSTrust("these");
    EXPECT_EQ(begin("smtp://host/"), Texts());
    m_demands.noticeTLSTrust("these");
    EXPECT_EQ(begin("smtp://host/"), Texts());
}

TEST_F(CConnectionDemandsTest, ofTLSWantNewConnectionsInAManagerWhereThoseAreUpgraded)
{
    m_demands.noticeTLSTrust("these");
    EXPECT_EQ(begin("smtp://host/", true), Texts()) << "in plain text";
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_TRY);
    EXPECT_EQ(begin("smtp://host/", true), m_fresh);
    EXPECT_EQ(begin("https://host/", true), m_any);
    m_demands.forgetOptions();
    m_demands.noticeNumber(CURLOPT_USE_SSL, CURLUSESSL_TRY);
    EXPECT_EQ(begin("smtp://host/", true), Texts());
}

TEST_F(CConnectionDemandsTest, doNotMindOtherTexts)
{
    m_demands.noticeText(CURLOPT_USERNAME, "name");
    EXPECT_EQ(begin("sftp://host/", true), Texts());
}

TEST_F(CConnectionDemandsTest, beginAgainOnANewConnection)
{
    m_calls.takeOptions();
    m_demands.beginAgain();
    EXPECT_EQ(m_calls.takeOptions(), m_fresh);
    EXPECT_EQ(begin("smtp://host/"), m_any);
}

} // namespace
