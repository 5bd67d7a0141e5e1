#include "norla/core/CBearerToken.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

class CBearerTokenTest : public testing::Test {
protected:
    /// The options that the action sets.
    template <typename TAction>
    Texts optionsOf(TAction action)
    {
        m_calls.takeOptions();
        action();
        return m_calls.takeOptions();
    }

    static std::string methods(long mask) { return "HTTPAUTH=" + std::to_string(mask); }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CBearerToken m_token{m_handle};
};

TEST_F(CBearerTokenTest, isTheOnlyMethodThen)
{
    EXPECT_EQ(optionsOf([this] { m_token.set("abc"); }), Texts({methods(CURLAUTH_BEARER), "XOAUTH2_BEARER=abc"}));
}

TEST_F(CBearerTokenTest, setsNothingWhereThereIsNone)
{
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts());
}

TEST_F(CBearerTokenTest, leavesLibcurlsOwnMethodBehind)
{
    m_token.set("abc");
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts({"XOAUTH2_BEARER=null", methods(CURLAUTH_BASIC)}));
}

TEST_F(CBearerTokenTest, leavesTheCallersMethodsBehind)
{
    EXPECT_EQ(optionsOf([this] { m_token.setMethods(CURLAUTH_DIGEST); }), Texts({methods(CURLAUTH_DIGEST)}));
    m_token.set("abc");
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts({"XOAUTH2_BEARER=null", methods(CURLAUTH_DIGEST)}));
}

TEST_F(CBearerTokenTest, goesBeforeMethodsThatAreSetLater)
{
    m_token.set("abc");
    EXPECT_EQ(optionsOf([this] { m_token.setMethods(CURLAUTH_NTLM); }), Texts());
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts({"XOAUTH2_BEARER=null", methods(CURLAUTH_NTLM)}));
}

TEST_F(CBearerTokenTest, takesTheCharactersOfATokenAlone)
{
    EXPECT_EQ(optionsOf([this] { m_token.set("azAZ09-._~+/=="); }).back(), "XOAUTH2_BEARER=azAZ09-._~+/==");
    const kx::String refusal
        = "Invalid argument passed to 'CNetRequest::setBearerToken': the token holds something else "
          "than the characters of a bearer token.";
    for (const kx::String& wrong : {kx::String("a b"), kx::String("a\r\nX: b"), kx::String("=="), kx::String("a=b"),
             kx::String(L"\u00fc"), kx::String("a,b"), kx::String(std::wstring(L"a\0", 2))}) {
        EXPECT_EQ(support::messageOf([&] { m_token.set(wrong); }), refusal) << wrong;
        EXPECT_EQ(m_calls.takeOptions(), Texts());
    }
}

TEST_F(CBearerTokenTest, forgetsWhatAResetForgets)
{
    m_token.setMethods(CURLAUTH_DIGEST);
    m_token.set("abc");
    m_token.forgetOptions();
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts());
    m_token.set("abc");
    EXPECT_EQ(optionsOf([this] { m_token.set(""); }), Texts({"XOAUTH2_BEARER=null", methods(CURLAUTH_BASIC)}));
}

} // namespace
