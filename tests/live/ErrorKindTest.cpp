// What people and programs are told of the failures that real servers give.
#include "norla/core/errorKind.h"

#include "norla/core/CDeadlines.h"
#include "norla/core/CFileSink.h"
#include "norla/core/explain.h"
#include "tests/live/FTPSession.h"
#include "tests/live/S3Session.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CApacheServer.h"
#include "tests/support/CEximServer.h"
#include "tests/support/CMicrosocksServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CPostfixServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CSquidServer.h"
#include "tests/support/CTinyproxyServer.h"

#include <algorithm>
#include <array>
#include <regex>

namespace {

using support::CProxyServer;

std::string nameOf(norla::ErrorKind kind)
{
    constexpr std::array names = {"Unknown", "InvalidArgument", "OutOfMemory", "Cancelled", "NotFound", "Denied",
        "Login", "Certificate", "Encryption", "NameLookup", "Unreachable", "ConnectTimeout", "InactivityTimeout",
        "TotalTimeout", "ConnectionLost", "RecipientRefused", "Full", "TooLarge", "Temporary", "Protocol", "Refused"};
    return names.at(static_cast<size_t>(kind));
}

/// "Kind: sentence", with HOST in place of 127.0.0.1 and its port, without the versions of servers, and with FOLDER in
/// place of temporary ones. What a server says is cut after its first words: it may quote a port or be cut by length.
std::string told(const kx::P<kx::CError>& error)
{
    if (!error)
        return "success";
    std::string text = nameOf(norla::getErrorKind(*error)) + ": " + norla::explain(*error).toUTF8();
    EXPECT_LT(text.size(), 600);
    text = std::regex_replace(text, std::regex("127\\.0\\.0\\.1(:[0-9]+)?"), "HOST");
    text = std::regex_replace(text, std::regex("/tmp/norla[^']*/root"), "FOLDER");
    constexpr size_t mostWords = 40;
    const size_t words = std::min(text.find("says: "), text.size());
    return text.size() > words + mostWords ? text.substr(0, words + mostWords) + "~" : text;
}

std::string toldOf(norla::CNetRequest& request)
{
    return told(live::failureOf(request));
}

std::string toldOf(const std::string& url)
{
    return toldOf(*live::requestFor(url));
}

TEST(ErrorKindLiveTest, refusedPort)
{
    const support::CRefusedPort port;
    EXPECT_EQ(toldOf(port.url("/a")), "Unreachable: It is not possible to connect to the server HOST for '/a'.");
    EXPECT_EQ(toldOf(port.url("/a", "ftp")), "Unreachable: It is not possible to connect to the server HOST for '/a'.");
    EXPECT_EQ(toldOf(port.url("/", "smtp")), "Unreachable: It is not possible to connect to the server HOST.");
    EXPECT_EQ(
        toldOf(port.url("/a", "sftp")), "Unreachable: It is not possible to connect to the server HOST for '/a'.");
}

TEST(ErrorKindLiveTest, unknownName)
{
    EXPECT_EQ(toldOf("http://" + std::string(64, 'x') + ".invalid/a"),
        "NameLookup: The name of the server xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.invalid "
        "is not known.");
    const auto request = live::requestFor("http://127.0.0.1/a");
    request->setProxy(kx::String::fromUTF8(std::string(64, 'x') + ".invalid"));
    EXPECT_EQ(toldOf(*request),
        "NameLookup: The name of the proxy "
        "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.invalid:1080 "
        "on the way to the server HOST is not known.");
}

TEST(ErrorKindLiveTest, nginx)
{
    const support::CNginxServer server;
    EXPECT_EQ(toldOf(server.url("/missing")),
        "NotFound: There is no '/missing' on the server HOST; the server says: \"404 Not Found 404 Not Found nginx~");
    EXPECT_EQ(toldOf(server.url("/status/503")),
        "Temporary: It is not possible at the moment, but maybe later, to use the server HOST for '/status/503'; the "
        "server says: \"503 Service Temporarily Unavailab~");
    const auto circle = live::requestFor(server.url("/loop"));
    circle->setOptionInt(CURLOPT_MAXREDIRS, 2);
    EXPECT_EQ(toldOf(*circle), "Protocol: Too many redirects come from the server HOST for '/loop'.");
    EXPECT_EQ(
        toldOf(server.url("/drop")), "ConnectionLost: The connection to the server HOST was lost during '/drop'.");
    EXPECT_EQ(toldOf(server.url("/private/digits.txt")),
        "Login: The login is refused by the server HOST for '/private/digits.txt'; the server says: \"401 "
        "Authorization Required 401 Au~");
}

int cancel(void* /*data*/, curl_off_t /*size*/, curl_off_t /*down*/, curl_off_t /*toSend*/, curl_off_t /*up*/)
{
    return 1;
}

TEST(ErrorKindLiveTest, whatNginxDoesNotAllow)
{
    const support::CNginxServer server;
    EXPECT_EQ(toldOf(server.url("/denied")),
        "Denied: The use of '/denied' is not allowed on the server HOST; the server says: \"403 Forbidden 403 "
        "Forbidden nginx~");
    const auto upload = live::requestFor(server.url("/small"));
    upload->setHTTPMethod("PUT");
    upload->setSendDataAsUTF8("12");
    EXPECT_EQ(toldOf(*upload),
        "TooLarge: The size of '/small' is beyond what is allowed with the server HOST; the server says: \"413 "
        "Request Entity Too Large 413 ~");
}

TEST(ErrorKindLiveTest, cancelledByTheProgram)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/slow.bin"));
    request->setOptionInt(CURLOPT_NOPROGRESS, 0);
    request->setOptionPtr(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&cancel));
    EXPECT_EQ(toldOf(*request), "Cancelled: The transfer of '/slow.bin' with the server HOST was cancelled.");
}

TEST(ErrorKindLiveTest, tlsOfNginx)
{
    const support::CNginxServer server;
    const auto toldOfTLS = [](const std::string& url) {
        const auto request = live::requestFor(url);
        live::trustTestCertificates(*request);
        return toldOf(*request);
    };
    EXPECT_EQ(toldOfTLS(server.wrongHostURL("/a")),
        "Certificate: It is not certain that the server HOST is the server that was meant.");
    EXPECT_EQ(toldOfTLS(server.expiredURL("/a")),
        "Certificate: It is not certain that the server HOST is the server that was meant.");
    EXPECT_EQ(toldOf(server.httpsURL("/a")),
        "Certificate: It is not certain that the server HOST is the server that was meant.");
    EXPECT_EQ(toldOfTLS("https" + server.url("/a").substr(4)),
        "Encryption: No encrypted connection to the server HOST is possible.");
}

TEST(ErrorKindLiveTest, apache)
{
    const support::CApacheServer server;
    EXPECT_EQ(toldOf(server.url("/missing")),
        "NotFound: There is no '/missing' on the server HOST; the server says: \"404 Not Found Not Found The reque~");
    const auto request = live::requestFor(server.url("/digest/digits.txt"));
    request->setHTTPAuthMethods(CURLAUTH_DIGEST);
    request->setUserName("user");
    request->setUserPassword("wrong");
    EXPECT_EQ(toldOf(*request),
        "Login: The login is refused by the server HOST for '/digest/digits.txt'; the server says: \"401 Unauthorized "
        "Unauthorized Thi~");
}

std::vector<std::string> toldOfFTP(const support::IFTPServer& server)
{
    const auto requestFor = [&server](const char* path) {
        auto request = live::requestFor(server.url(path));
        request->setUserName(kx::String::fromUTF8(server.userName()));
        request->setUserPassword(kx::String::fromUTF8(server.password()));
        return request;
    };
    std::vector<std::string> all = {toldOf(*requestFor("/missing.txt")), toldOf(*requestFor("/missing/a.txt"))};
    const auto stranger = requestFor("/digits.txt");
    stranger->setUserName("stranger");
    stranger->setUserPassword("secret");
    all.push_back(toldOf(*stranger));
    const auto upload = requestFor("/missing/new.txt");
    upload->setUpload(true);
    upload->setSendDataAsUTF8("x");
    all.push_back(toldOf(*upload));
    const auto encrypted = requestFor("/digits.txt");
    encrypted->setFTPUseSSL(CURLUSESSL_ALL);
    all.push_back(toldOf(*encrypted));
    return all;
}

using Texts = std::vector<std::string>;

TEST(ErrorKindLiveTest, pyftpdlib)
{
    EXPECT_EQ(toldOfFTP(*live::makePyftpdlib(live::Security::None)),
        Texts({"NotFound: There is no '/missing.txt' on the server HOST; the server says: \"550 /missing.txt is not "
               "retrievab~",
            "NotFound: There is no '/missing/a.txt' on the server HOST; the server says: \"550 No such file or "
            "directory.\".",
            "Login: The login is refused by the server HOST for '/digits.txt'; the server says: \"530 Authentication "
            "failed.\".",
            "NotFound: There is no '/missing/new.txt' on the server HOST; the server says: \"550 No such file or "
            "directory.\".",
            "Encryption: No encrypted connection to the server HOST is possible; the server says: \"500 Command "
            "\"AUTH\" not understood~"}));
}

TEST(ErrorKindLiveTest, proftpd)
{
    EXPECT_EQ(toldOfFTP(*live::makeLenient<support::CProFTPDServer>(live::Security::None)),
        Texts({"NotFound: There is no '/missing.txt' on the server HOST; the server says: \"550 missing.txt: No such "
               "file or ~",
            "NotFound: There is no '/missing/a.txt' on the server HOST; the server says: \"550 missing: No such file "
            "or dire~",
            "Login: The login is refused by the server HOST for '/digits.txt'; the server says: \"530 Login "
            "incorrect.\".",
            "NotFound: There is no '/missing/new.txt' on the server HOST; the server says: \"550 missing: No such file "
            "or dire~",
            "Encryption: No encrypted connection to the server HOST is possible; the server says: \"500 AUTH not "
            "understood\"."}));
}

TEST(ErrorKindLiveTest, folderOfProFTPDThatIsOnlyRead)
{
    const auto server = live::makeLenient<support::CProFTPDServer>(live::Security::None);
    std::filesystem::create_directory(server->root() / "read-only");
    const auto upload = live::requestFor(server->url("/read-only/new.txt"));
    upload->setUserName(kx::String::fromUTF8(server->userName()));
    upload->setUserPassword(kx::String::fromUTF8(server->password()));
    upload->setUpload(true);
    upload->setSendDataAsUTF8("x");
    EXPECT_EQ(toldOf(*upload),
        "Denied: The use of '/read-only/new.txt' is not allowed on the server HOST; the server says: \"550 new.txt: "
        "Operation not permit~");
}

TEST(ErrorKindLiveTest, pureFTPd)
{
    EXPECT_EQ(toldOfFTP(*live::makePureFTPd(live::Security::None)),
        Texts({"NotFound: There is no '/missing.txt' on the server HOST; the server says: \"550 Can't check for file "
               "existenc~",
            "NotFound: There is no '/missing/a.txt' on the server HOST; the server says: \"550 Can't change directory "
            "to mis~",
            "Login: The login is refused by the server HOST for '/digits.txt'; the server says: \"530 Login "
            "authentication failed\".",
            "NotFound: There is no '/missing/new.txt' on the server HOST; the server says: \"550 Can't change "
            "directory to mis~",
            "Encryption: No encrypted connection to the server HOST is possible; the server says: \"500 This security "
            "scheme is not i~"}));
}

TEST(ErrorKindLiveTest, vsftpd)
{
    EXPECT_EQ(toldOfFTP(*live::makeLenient<support::CVsftpdServer>(live::Security::None)),
        Texts({"NotFound: There is no '/missing.txt' on the server HOST; the server says: \"550 Could not get file "
               "size.\".",
            "NotFound: There is no '/missing/a.txt' on the server HOST; the server says: \"550 Failed to change "
            "directory.\".",
            "Login: The login is refused by the server HOST for '/digits.txt'; the server says: \"530 Login "
            "incorrect.\".",
            "NotFound: There is no '/missing/new.txt' on the server HOST; the server says: \"550 Failed to change "
            "directory.\".",
            "Encryption: No encrypted connection to the server HOST is possible; the server says: \"530 Please login "
            "with USER and PA~"}));
}

kx::P<norla::CNetRequest> requestFor(const support::CSSHServer& server, const std::string& name)
{
    auto request = live::requestFor(server.url((server.root() / name).string()));
    request->setUserName(kx::String::fromUTF8(server.userName()));
    request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(server.privateKeyFile().string()));
    request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(server.publicKeyFile().string()));
    request->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
    return request;
}

TEST(ErrorKindLiveTest, openSSH)
{
    const support::CSSHServer server;
    const support::CTemporaryFolder folder;
    EXPECT_EQ(
        toldOf(*requestFor(server, "missing.txt")), "NotFound: There is no 'FOLDER/missing.txt' on the server HOST.");
    const auto stranger = requestFor(server, "digits.txt");
    stranger->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PASSWORD);
    stranger->setUserPassword("wrong");
    EXPECT_EQ(toldOf(*stranger), "Login: The login is refused by the server HOST for 'FOLDER/digits.txt'.");
    const auto suspicious = requestFor(server, "digits.txt");
    suspicious->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(folder.write("known_hosts", "").string()));
    EXPECT_EQ(toldOf(*suspicious), "Certificate: It is not certain that the server HOST is the server that was meant.");
}

TEST(ErrorKindLiveTest, openSSHThatIsOnlyRead)
{
    const support::CSSHServer server({"ed25519"}, support::CSSHServer::Access::ReadOnly);
    const auto upload = requestFor(server, "new.txt");
    upload->setUpload(true);
    upload->setSendDataAsUTF8("x");
    EXPECT_EQ(toldOf(*upload), "Denied: The use of 'FOLDER/new.txt' is not allowed on the server HOST.");
}

std::string toldOfMail(unsigned short port, norla::CSMTPParams::ConnectType type, const std::string& recipient,
    const kx::String& user = "")
{
    norla::CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = port;
    params.connectType = type;
    params.userName = user;
    params.password = "wrong";
    const std::string message = "Subject: 1\r\n\r\ntext\r\n";
    const auto buffer = kx::newObj<norla::CSMTPClient::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(message.data()), message.size());
    const auto request = kx::newObj<norla::CNetRequest>();
    norla::CSMTPClient::makeSendMailRequest(*request, params, "from@a.example", {kx::String::fromUTF8(recipient)},
        kx::newObj<kx::CBufferStream>(buffer).get());
    return toldOf(*request);
}

using norla::CSMTPParams;

TEST(ErrorKindLiveTest, aiosmtpd)
{
    using Authentication = support::CSMTPServer::Authentication;
    const support::CSMTPServer server({.authentication = Authentication::Offered,
        .replies = {{"RCPT TO:<full@", "552 5.2.2 Mailbox full"}, {"RCPT TO:<body@", "250 ok"}}});
    constexpr auto plain = CSMTPParams::ConnectUnencrypted;
    EXPECT_EQ(toldOfMail(server.getPort(), plain, "reject@b.example"),
        "RecipientRefused: A recipient of the mail is refused by the server HOST; the server says: \"550 5.1.1 No such "
        "recipient\".");
    EXPECT_EQ(toldOfMail(server.getPort(), plain, "tempfail@b.example"),
        "Temporary: It is not possible at the moment, but maybe later, to use the server HOST; the server says: \"451 "
        "4.3.0 Try again later\".");
    EXPECT_EQ(toldOfMail(server.getPort(), plain, "full@b.example"),
        "Full: There is no space left on the server HOST; the server says: \"552 5.2.2 Mailbox full\".");
    EXPECT_EQ(toldOfMail(server.getPort(), plain, "to@b.example", "stranger"),
        "Login: The login is refused by the server HOST; the server says: \"535 5.7.8 Authentication credenti~");
    EXPECT_EQ(toldOfMail(server.getPort(), CSMTPParams::ConnectStartTLS, "to@b.example"),
        "Encryption: No encrypted connection to the server HOST is possible.");
    const support::CSMTPServer strict({.authentication = Authentication::Demanded});
    EXPECT_EQ(toldOfMail(strict.getPort(), plain, "to@b.example"),
        "Login: The login is refused by the server HOST; the server says: \"530 5.7.0 Authentication required~");
}

TEST(ErrorKindLiveTest, exim)
{
    const support::CEximServer server(support::CEximServer::Authentication::Demanded);
    EXPECT_EQ(toldOfMail(server.getPort(), CSMTPParams::ConnectUnencrypted, "to@b.example"),
        "Login: The login is refused by the server HOST; the server says: \"530 5.7.0 Authentication required~");
    EXPECT_EQ(toldOfMail(server.getPort(), CSMTPParams::ConnectUnencrypted, "to@b.example", "stranger"),
        "Login: The login is refused by the server HOST; the server says: \"535 Incorrect authentication data~");
    const support::CEximServer open;
    EXPECT_EQ(toldOfMail(open.getPort(), CSMTPParams::ConnectUnencrypted, "tempfail@b.example"),
        "Temporary: It is not possible at the moment, but maybe later, to use the server HOST; the server says: \"451 "
        "4.3.0 Try again later\".");
}

TEST(ErrorKindLiveTest, postfix)
{
    const support::CPostfixServer server;
    EXPECT_EQ(toldOfMail(server.getPort(), CSMTPParams::ConnectUnencrypted, "no body@b.example"),
        "RecipientRefused: A recipient of the mail is refused by the server HOST; the server says: \"501 5.1.3 Bad "
        "recipient address s~");
}

std::string toldThrough(const std::string& proxy, const std::string& url)
{
    const auto request = live::requestFor(url);
    request->setProxy(kx::String::fromUTF8(proxy));
    return toldOf(*request);
}

TEST(ErrorKindLiveTest, proxies)
{
    const support::CNginxServer server;
    const support::CRefusedPort nobody;
    const CProxyServer::CLogin login{.user = "user", .password = "secret"};
    const support::CSquidServer squid;
    const support::CTinyproxyServer tinyproxy;
    const support::CTinyproxyServer guarded(login);
    const support::CMicrosocksServer microsocks;
    EXPECT_EQ(toldThrough(squid.host(), server.url("/a")),
        "Login: The login is refused by the proxy HOST on the way to the server HOST for '/a'; the proxy says: "
        "\"ERROR: "
        "Cache Access Denied ERROR ~");
    EXPECT_EQ(toldThrough(squid.host(), server.httpsURL("/a")),
        "Login: The login is refused by the proxy HOST on the way to the server HOST for '/a'.");
    EXPECT_EQ(toldThrough("user:secret@" + squid.host(), server.url("/a")),
        "NotFound: There is no '/a' on the server HOST; the server says: \"404 Not Found 404 Not Found nginx~");
    EXPECT_EQ(toldThrough(guarded.host(), server.url("/a")),
        "Login: The login is refused by the proxy HOST on the way to the server HOST for '/a'; the proxy says: \"407 "
        "Proxy "
        "Authentication Required~");
    EXPECT_EQ(toldThrough(tinyproxy.host(), nobody.url("/a")),
        "Temporary: It is not possible at the moment, but maybe later, to use the server HOST for '/a'; the server "
        "says: \"500 Unable to connect Unable to c~");
    EXPECT_EQ(toldThrough(tinyproxy.host(), nobody.url("/a", "https")),
        "Unreachable: No connection is made by the proxy HOST on the way to the server HOST for '/a'.");
    EXPECT_EQ(toldThrough("socks5h://" + microsocks.host(), nobody.url("/a")),
        "Unreachable: No connection is made by the proxy HOST on the way to the server HOST for '/a'.");
    EXPECT_EQ(toldThrough(nobody.url(), server.url("/a")),
        "Unreachable: It is not possible to connect to the proxy HOST on the way to the server HOST for '/a'.");
}

TEST(ErrorKindLiveTest, silentServerAndDeadline)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/slow.bin"));
    request->setDeadlines({.total = kx::CTimeSpan::fromMilliseconds(300)});
    EXPECT_EQ(toldOf(*request),
        "TotalTimeout: The transfer with HOST was not done within 0.3 seconds for '/slow.bin': the answer was still "
        "coming.");
}

TEST(ErrorKindLiveTest, serverThatAcceptsAndSaysNothing)
{
    support::CScriptedServer server;
    server.onConnection().stall();
    const auto encrypted = live::requestFor(server.url("/a", "https"));
    encrypted->setDeadlines({.connect = kx::CTimeSpan::fromMilliseconds(200)});
    EXPECT_EQ(toldOf(*encrypted),
        "ConnectTimeout: The server HOST accepted a connection, but agreed on no encryption within 0.2 seconds for "
        "'/a'.");
    server.onConnection().readHead().stall();
    const auto plain = live::requestFor(server.url("/a"));
    plain->setDeadlines({.inactivity = kx::CTimeSpan::fromSeconds(1)});
    EXPECT_EQ(toldOf(*plain), "InactivityTimeout: The server HOST has not answered for 1 second for '/a'.");
}

TEST(ErrorKindLiveTest, fileThatCannotBeWritten)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    EXPECT_EQ(told(support::errorOf(
                  [&] { kx::newObj<norla::CFileSink>(*request, norla::CNetRequest::Path::fromBytes("/nowhere/a")); })),
        "NotFound: The file '/nowhere/a' cannot be written: No such file or directory.");
}

class ErrorKindS3Test : public live::S3Session {};

TEST_F(ErrorKindS3Test, ceph)
{
    const std::string bucket = m_bucket.toUTF8();
    EXPECT_EQ(told(support::errorOf([this] { get("missing/a b"); })),
        "NotFound: There is no '/" + bucket + "/missing/a b' on the store HOST; the store says: \"NoSuchKey\".");
    EXPECT_EQ(told(support::errorOf([this] { client().getObject(request(), "no-such-bucket", "a", 0, -1); })),
        "NotFound: There is no '/no-such-bucket/a' on the store HOST; the store says: \"NoSuchBucket\".");
    const auto stranger
        = kx::newObj<norla::CS3Client>(live::text(store().accessKeyId()), "wrong", false, live::text(store().host()));
    EXPECT_EQ(told(support::errorOf([&] { stranger->getObject(request(), m_bucket, "a", 0, -1); })),
        "Login: The login is refused by the store HOST for '/" + bucket
            + "/a'; the store says: \"SignatureDoesNotMatch\".");
    const auto other = kx::newObj<norla::CS3Client>(live::text(store().otherAccessKeyId()),
        live::text(store().otherSecretAccessKey()), false, live::text(store().host()));
    EXPECT_EQ(told(support::errorOf([&] { other->listObjects(request(), m_bucket, "", "", "", -1); })),
        "Denied: The use of '/" + bucket + "' is not allowed on the store HOST; the store says: \"AccessDenied\".");
}

} // namespace
