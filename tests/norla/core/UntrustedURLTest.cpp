// What a URL that somebody else has written can make of a transfer.
#include "norla/core/CSafeDefaults.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"

namespace {

/// A request with the safe defaults and a server. What it cannot read out of a URL it sends to nobody.
class UntrustedURLTest : public CRequestFixture {
protected:
    UntrustedURLTest()
    {
        request().setSafeDefaults();
        request().setFullRequestTimeout(kx::CTimeSpan::fromSeconds(20));
    }

    /// 0 for a success.
    long long codeOf(const std::string& url)
    {
        request().setURL(kx::String::fromUTF8(url));
        const auto error = failure();
        return error ? error->getCode() : 0;
    }

    std::string hostAndPort() { return "127.0.0.1:" + std::to_string(server().getPort()); }
};

TEST_F(UntrustedURLTest, beginsNoFieldOfHTTP)
{
    EXPECT_EQ(codeOf(server().url("/a HTTP/1.1\r\nX-Admin: 1")), CURLE_URL_MALFORMAT);
    EXPECT_EQ(codeOf(server().url("/a\nX-Admin: 1")), CURLE_URL_MALFORMAT);
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(UntrustedURLTest, sendsAnEscapedLineEndEscapedOverHTTP)
{
    answer(ok("body"));
    EXPECT_EQ(codeOf(server().url("/a%0D%0AX-Admin:1")), CURLE_OK);
    EXPECT_TRUE(received().starts_with("GET /a%0D%0AX-Admin:1 HTTP/1.1\r\n"));
}

TEST_F(UntrustedURLTest, beginsNoCommandOfFTP)
{
    server()
        .onConnection()
        .send("220 hello\r\n")
        .readUntil("USER anonymous\r\n")
        .send("230 in\r\n")
        .readUntil("PWD\r\n")
        .send("257 \"/\"\r\n")
        .readToEnd();
    EXPECT_EQ(codeOf("ftp://" + hostAndPort() + "/a%0D%0ADELE%20b"), CURLE_URL_MALFORMAT);
    useNewRequest();
    server().join();
    EXPECT_EQ(server().received(0).find("DELE"), std::string::npos) << server().received(0);
}

TEST_F(UntrustedURLTest, beginsNoCommandOfFTPByItsLogin)
{
    EXPECT_EQ(codeOf("ftp://user%0D%0ADELE%20b:password@" + hostAndPort() + "/a"), CURLE_URL_MALFORMAT);
    EXPECT_EQ(codeOf("ftp://user:password%0D%0ADELE%20b@" + hostAndPort() + "/a"), CURLE_URL_MALFORMAT);
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(UntrustedURLTest, beginsNoCommandOfMail)
{
    server().onConnection().send("220 ready\r\n").readToEnd();
    EXPECT_EQ(codeOf("smtp://" + hostAndPort() + "/host%0D%0AMAIL%20FROM:%3Ca@x%3E"), CURLE_URL_MALFORMAT);
    useNewRequest();
    server().join();
    EXPECT_EQ(server().received(0).find("MAIL"), std::string::npos) << server().received(0);
}

TEST_F(UntrustedURLTest, readsNoFileWhereOnlyHTTPIsAllowed)
{
    const support::CTemporaryFolder folder;
    folder.write("file", "secret");
    request().setOptionString(CURLOPT_PROTOCOLS_STR, "http,https");
    EXPECT_EQ(codeOf("file://" + (folder.path() / "file").native()), CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(body(), "");
}

TEST_F(UntrustedURLTest, asksNoOtherKindOfServerWhereOnlyHTTPIsAllowed)
{
    request().setOptionString(CURLOPT_PROTOCOLS_STR, "http,https");
    for (const char* scheme : {"ftp", "smtp", "sftp", "gopher", "dict", "telnet", "tftp", "ldap"})
        EXPECT_EQ(codeOf(std::string(scheme) + "://" + hostAndPort() + "/"), CURLE_UNSUPPORTED_PROTOCOL) << scheme;
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(UntrustedURLTest, isAskedForBeforeARedirectToo)
{
    request().setOptionString(CURLOPT_PROTOCOLS_STR, "http,https");
    answer("HTTP/1.1 302 Found\r\nLocation: ftp://" + hostAndPort() + "/\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(codeOf(server().url()), CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(server().connectionCount(), 1u);
}

} // namespace
