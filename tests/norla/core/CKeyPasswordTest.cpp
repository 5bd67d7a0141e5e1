#include "norla/core/CKeyPassword.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

class CKeyPasswordTest : public testing::Test {
protected:
    /// The options that the beginning of a transfer sets.
    Texts begin(const char* url)
    {
        m_calls.takeOptions();
        m_password.begin(norla::CRequestURL(kx::String::fromLatin1(url)));
        return m_calls.takeOptions();
    }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CKeyPassword m_password{m_handle};
};

TEST_F(CKeyPasswordTest, isNotSetWhereThereIsNoKey)
{
    EXPECT_EQ(begin("https://host/"), Texts());
    EXPECT_EQ(begin("sftp://host/"), Texts());
}

TEST_F(CKeyPasswordTest, isThatOfTheKeyInUse)
{
    m_password.setForTLS("for TLS");
    m_password.setForSSH("for SSH");
    EXPECT_EQ(begin("https://host/"), Texts({"KEYPASSWD=for TLS"}));
    EXPECT_EQ(begin("sftp://host/"), Texts({"KEYPASSWD=for SSH"}));
    EXPECT_EQ(begin("scp://host/"), Texts({"KEYPASSWD=for SSH"}));
}

TEST_F(CKeyPasswordTest, isEmptyForAKeyWithoutOneSoThatNobodyIsAsked)
{
    m_password.setForTLS("");
    EXPECT_EQ(begin("ftp://host/"), Texts({"KEYPASSWD="}));
}

TEST_F(CKeyPasswordTest, isTakenBackOnceWhereThereIsNoKeyAnyMore)
{
    m_password.setForTLS("for TLS");
    begin("https://host/");
    EXPECT_EQ(begin("sftp://host/"), Texts({"KEYPASSWD=null"}));
    EXPECT_EQ(begin("sftp://host/"), Texts());
}

TEST_F(CKeyPasswordTest, isForgottenAtAReset)
{
    m_password.setForTLS("for TLS");
    m_password.setForSSH("for SSH");
    begin("https://host/");
    m_password.forgetOptions();
    EXPECT_EQ(begin("https://host/"), Texts());
    EXPECT_EQ(begin("sftp://host/"), Texts());
}

} // namespace
