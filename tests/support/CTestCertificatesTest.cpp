#include "tests/support/CTestCertificates.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CScriptedServer;
using support::CTestCertificates;
using support::runCurl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

const CTestCertificates& certificates()
{
    return CTestCertificates::get();
}

std::string verify(const std::filesystem::path& authority, const std::filesystem::path& certificate)
{
    const CProcessRun run({"openssl", "verify", "-x509_strict", "-CAfile", authority, certificate});
    return run.output() + run.errors();
}

TEST(CTestCertificatesTest, areSignedByTheTestAuthority)
{
    const CTestCertificates& all = certificates();
    for (const auto& file : {all.serverCertificate(), all.wrongHostCertificate(), all.clientCertificate()})
        EXPECT_EQ(verify(all.caFile(), file), file.string() + ": OK\n");
    EXPECT_THAT(verify(all.caFile(), all.expiredCertificate()), HasSubstr("certificate has expired"));
    EXPECT_THAT(verify(all.otherCAFile(), all.serverCertificate()), HasSubstr("verification failed"));
}

TEST(CTestCertificatesTest, letAScriptedServerUseTLS)
{
    CScriptedServer server;
    server.onConnection()
        .startTLS(certificates().serverCertificate(), certificates().serverKey())
        .readHead()
        .sendPieces({"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", "he", "llo"})
        .closeTLS();
    const CProcessRun run = runCurl({"--cacert", certificates().caFile(), server.url("/x", "https")});
    EXPECT_EQ(run.output(), "hello") << run.errors();
    server.join();
    EXPECT_THAT(server.received(0), StartsWith("GET /x HTTP/1.1\r\n"));
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CTestCertificatesTest, letAScriptedServerUpgradeToTLS)
{
    CScriptedServer server;
    server.onConnection()
        .send("220 ready\r\n")
        .readUntil("\r\n")
        .send("250-hello\r\n250 STARTTLS\r\n")
        .readUntil("\r\n")
        .send("220 go\r\n")
        .startTLS(certificates().serverCertificate(), certificates().serverKey())
        .readUntil("\r\n")
        .send("250 hello again\r\n")
        .readUntil("\r\n")
        .send("550 no\r\n");
    const CProcessRun run
        = runCurl({"--ssl-reqd", "--cacert", certificates().caFile(), server.url("", "smtp"), "-X", "NOOP"});
    EXPECT_EQ(run.exitStatus(), 8) << run.errors();
    EXPECT_THAT(server.received(0), HasSubstr("STARTTLS\r\nEHLO "));
}

TEST(CTestCertificatesTest, aClientThatDoesNotTrustThemIsAProblemOfTheServer)
{
    CScriptedServer server;
    server.onConnection().startTLS(certificates().serverCertificate(), certificates().serverKey()).readHead();
    EXPECT_EQ(runCurl({"--cacert", certificates().otherCAFile(), server.url("/", "https")}).exitStatus(), 60);
    server.join();
    ASSERT_THAT(server.problems(), SizeIs(1));
    EXPECT_THAT(server.problems()[0], StartsWith("connection 0, step 0 (startTLS): "));
}

/// @return what OpenSSL's own client says about the end of a TLS connection
std::string endAsSeenByOpenSSL(const CScriptedServer& server)
{
    const std::string address = "127.0.0.1:" + std::to_string(server.getPort());
    const CProcessRun run(
        {.arguments = {"openssl", "s_client", "-quiet", "-ign_eof", "-connect", address}, .input = "hi\n"});
    EXPECT_THAT(run.output(), "bye");
    return run.errors();
}

TEST(CTestCertificatesTest, aConnectionClosedHardEndsWithoutCloseNotify)
{
    const std::filesystem::path certificate = certificates().serverCertificate();
    CScriptedServer server;
    server.onConnection().startTLS(certificate, certificates().serverKey()).readUntil("\n").send("bye").closeHard();
    server.onConnection().startTLS(certificate, certificates().serverKey()).readUntil("\n").send("bye").closeTLS();
    EXPECT_THAT(endAsSeenByOpenSSL(server), HasSubstr("unexpected eof while reading"));
    EXPECT_THAT(endAsSeenByOpenSSL(server), Not(HasSubstr("unexpected eof")));
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CTestCertificatesTest, closeTLSNeedsTLS)
{
    CScriptedServer server;
    server.onConnection().readHead().closeTLS();
    EXPECT_EQ(runCurl({server.url()}).exitStatus(), 52);
    server.join();
    EXPECT_THAT(server.problems(), ElementsAre("connection 0, step 1 (closeTLS): the connection does not use TLS"));
}

} // namespace
