#include "sela/base64.h"
#include "tests/norla/core/CRequestFixture.h"

namespace {

class CNetRequestTokenTest : public CRequestFixture {
protected:
    /// What "Authorization" said in each request on a connection; "-" where it was not sent.
    std::vector<std::string> authorizations()
    {
        std::vector<std::string> found;
        std::string all = received();
        for (size_t end = 0; (end = all.find("\r\n\r\n")) != std::string::npos; all.erase(0, end + 4)) {
            const std::string name = "\r\nAuthorization: ";
            const size_t start = all.find(name);
            found.push_back(
                start < end ? all.substr(start + name.size(), all.find("\r\n", start + 2) - start - name.size()) : "-");
        }
        return found;
    }
};

using Texts = std::vector<std::string>;

TEST_F(CNetRequestTokenTest, isSentWithTheFirstRequest)
{
    answer(ok(""));
    request().setBearerToken("abc==");
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer abc=="}));
}

TEST_F(CNetRequestTokenTest, isReplacedAndTakenBack)
{
    answer(ok("")).readHead().send(ok("")).readHead().send(ok(""));
    request().setBearerToken("one");
    performPath();
    request().setBearerToken("two");
    performPath();
    request().setBearerToken("");
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer one", "Bearer two", "-"}));
}

TEST_F(CNetRequestTokenTest, leavesThePasswordItsPlace)
{
    answer(ok("")).readHead().send(ok(""));
    request().setUserName("user");
    request().setUserPassword("secret");
    request().setBearerToken("one");
    performPath();
    request().setBearerToken("");
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer one", "Basic dXNlcjpzZWNyZXQ="}));
}

TEST_F(CNetRequestTokenTest, goesBeforeMethodsThatAreSetAsANumber)
{
    answer(ok(""));
    request().setBearerToken("one");
    request().setOptionInt(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer one"}));
}

TEST_F(CNetRequestTokenTest, goesBeforeMethodsThatAreSetAsALongNumber)
{
    answer(ok(""));
    request().setUserName("user");
    request().setUserPassword("secret");
    request().setBearerToken("one");
    request().setOptionInt64(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer one"}));
}

TEST_F(CNetRequestTokenTest, isForgottenByAReset)
{
    answer(ok(""));
    request().setBearerToken("one");
    request().reset();
    performPath();
    EXPECT_EQ(authorizations(), Texts({"-"}));
}

TEST_F(CNetRequestTokenTest, leavesTheMethodsToTheCallerAfterAReset)
{
    answer(ok(""));
    request().setBearerToken("one");
    request().reset();
    request().setUserName("user");
    request().setHTTPAuthMethods(CURLAUTH_DIGEST); // waits to be asked
    performPath();
    EXPECT_EQ(authorizations(), Texts({"-"}));
}

TEST_F(CNetRequestTokenTest, followsARedirectOnItsHost)
{
    answer("HTTP/1.1 302 There\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n").readHead().send(ok(""));
    request().setBearerToken("one");
    performPath();
    EXPECT_EQ(authorizations(), Texts({"Bearer one", "Bearer one"}));
}

TEST_F(CNetRequestTokenTest, doesNotFollowARedirectToAnotherPort)
{
    support::CScriptedServer other;
    other.onConnection().readHead().send(
        "HTTP/1.1 302 There\r\nLocation: " + server().url() + "\r\nContent-Length: 0\r\n\r\n");
    answer(ok(""));
    request().setBearerToken("one");
    request().setURL(kx::String::fromUTF8(other.url()));
    request().perform();
    EXPECT_EQ(authorizations(), Texts({"-"}));
}

TEST_F(CNetRequestTokenTest, doesNotFollowARedirectToAnotherHost)
{
    answer("HTTP/1.1 302 There\r\nLocation: http://other.example/\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .send(ok(""));
    request().setProxy(kx::String::fromUTF8(server().url()));
    request().setBearerToken("one");
    request().setURL("http://one.example/");
    request().perform();
    EXPECT_EQ(authorizations(), Texts({"Bearer one", "-"}));
}

TEST_F(CNetRequestTokenTest, isNotInTheErrorOfAServerThatRefusesIt)
{
    answer("HTTP/1.1 401 No\r\nWWW-Authenticate: Bearer\r\nContent-Length: 0\r\n\r\n");
    request().setBearerToken("verysecret");
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage().find("verysecret"), kx::String::npos);
}

TEST_F(CNetRequestTokenTest, logsIntoAMailServer)
{
    server()
        .onConnection()
        .send("220 hello\r\n")
        .readUntil("\r\n")
        .send("250-hello\r\n250 AUTH PLAIN LOGIN OAUTHBEARER\r\n")
        .readUntil("\r\n")
        .send("334 \r\n")
        .readUntil("\r\n")
        .send("535 no\r\n")
        .readToEnd();
    request().setURL(kx::String::fromUTF8(server().url("/", "smtp")));
    request().setUserName("user");
    request().setUserPassword("secret");
    request().setBearerToken("abc");
    EXPECT_TRUE(failure());
    const std::string login
        = "n,a=user,\1host=127.0.0.1\1port=" + std::to_string(server().getPort()) + "\1auth=Bearer abc\1\1";
    const kx::String encoded
        = sela::base64Encode(reinterpret_cast<const unsigned char*>(login.data()), login.size(), true, false);
    EXPECT_NE(received().find("AUTH OAUTHBEARER\r\n" + encoded.toLatin1() + "\r\n"), std::string::npos) << received();
    EXPECT_EQ(received().find("AUTH PLAIN"), std::string::npos);
}

} // namespace
