// The FTP client against a server that breaks at every step.
#include "kx/text/numbers.h"
#include "tests/norla/ftp/scriptedFTP.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using ftp::CFTPClientFaultTest;
using ftp::CFTPClientServedTest;
using norla::CFTPClient;
using support::CScript;

/// Ends a connection in some way.
using Fault = std::function<void(CScript&)>;

struct CFaultRow {
    const char* name;
    Fault fault;
};

std::vector<CFaultRow> faults()
{
    return {{"reset", [](CScript& script) { script.reset(); }}, {"closed", [](CScript& script) { script.close(); }},
        {"stalled", [](CScript& script) { script.stall(); }},
        {"goingAway", [](CScript& script) { script.send("421 going away\r\n").close(); }}};
}

/// The steps of a log-in and a listing: what has been said when the control connection breaks.
struct CStepRow {
    const char* name;
    std::function<void(CScript&, unsigned short dataPort)> steps;
};

std::vector<CStepRow> steps()
{
    const auto upTo = [](std::initializer_list<std::pair<const char*, const char*>> exchanges) {
        return [all = std::vector(exchanges)](CScript& script, unsigned short dataPort) {
            script.send("220 hello\r\n");
            for (const auto& [command, answer] : all) {
                script.readUntil(command);
                std::string text = answer;
                if (const size_t at = text.find("PORT"); at != std::string::npos)
                    text.replace(at, 4, std::to_string(dataPort));
                script.send(text);
            }
        };
    };
    const std::pair user{"USER user\r\n", "331 password\r\n"};
    const std::pair pass{"PASS not-to-be-seen\r\n", "230 in\r\n"};
    const std::pair pwd{"PWD\r\n", "257 \"/\"\r\n"};
    const std::pair epsv{"EPSV\r\n", "229 ok (|||PORT|)\r\n"};
    const std::pair type{"TYPE A\r\n", "200 ok\r\n"};
    const std::pair mlsd{"MLSD\r\n", "150 here it comes\r\n"};
    return {{"connected", [](CScript&, unsigned short) {}}, {"greeted", upTo({})}, {"named", upTo({user})},
        {"loggedIn", upTo({user, pass})}, {"placed", upTo({user, pass, pwd})},
        {"passive", upTo({user, pass, pwd, epsv})}, {"typed", upTo({user, pass, pwd, epsv, type})},
        {"listing", upTo({user, pass, pwd, epsv, type, mlsd})}};
}

class CFTPControlFaultTest : public CFTPClientFaultTest,
                             public testing::WithParamInterface<std::tuple<CStepRow, CFaultRow>> {};

TEST_P(CFTPControlFaultTest, isAnErrorAndLeavesTheRequestUsable)
{
    const auto& [step, fault] = GetParam();
    m_data.onConnection().stall(); // never used when the control connection breaks earlier
    CScript& script = m_control.onConnection();
    step.steps(script, m_data.getPort());
    fault.fault(script);
    expectExplained(failureOfListing());
    expectUsable();
}

INSTANTIATE_TEST_SUITE_P(All, CFTPControlFaultTest,
    testing::Combine(testing::ValuesIn(steps()), testing::ValuesIn(faults())),
    [](const auto& row) { return std::string(std::get<0>(row.param).name) + "_" + std::get<1>(row.param).name; });

class CFTPDataFaultTest : public CFTPClientFaultTest, public testing::WithParamInterface<CFaultRow> {
protected:
    /// The whole control connection of a listing that the server itself takes for complete.
    void serveControl(const std::string& lastReply)
    {
        untilListing(m_control.onConnection(), m_data.getPort())
            .send("150 here it comes\r\n" + lastReply)
            .readUntil("QUIT\r\n")
            .close();
    }
};

TEST_P(CFTPDataFaultTest, isAnErrorBeforeTheFirstByte)
{
    serveControl("426 broken\r\n");
    GetParam().fault(m_data.onConnection());
    expectExplained(failureOfListing());
    expectUsable();
}

TEST_P(CFTPDataFaultTest, isAnErrorInTheMiddleOfALine)
{
    serveControl("426 broken\r\n");
    GetParam().fault(m_data.onConnection().send("type=file;size=1; a\r\ntype=fi"));
    expectExplained(failureOfListing());
    expectUsable();
}

INSTANTIATE_TEST_SUITE_P(
    All, CFTPDataFaultTest, testing::ValuesIn(faults()), [](const auto& row) { return std::string(row.param.name); });

TEST_F(CFTPClientFaultTest, isARefusedConnection)
{
    const support::CRefusedPort refused;
    const auto error = support::errorOf([&] { clientFor(refused.getPort())->deleteFile(request(), "/x"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isARefusedDataConnection)
{
    const support::CRefusedPort refused;
    // libcurl asks for the older PASV when the port of EPSV does not answer.
    login(m_control.onConnection())
        .readUntil("EPSV\r\n")
        .send("229 ok (|||" + std::to_string(refused.getPort()) + "|)\r\n")
        .readUntil("PASV\r\n")
        .send("227 ok (127,0,0,1," + std::to_string(refused.getPort() / 256) + ","
            + std::to_string(refused.getPort() % 256) + ")\r\n")
        .readUntil("QUIT\r\n")
        .close();
    expectExplained(failureOfListing());
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isNoWayToAnotherHost)
{
    const unsigned short port = m_data.getPort();
    login(m_control.onConnection())
        .readUntil("EPSV\r\n")
        .send("500 what?\r\n")
        .readUntil("PASV\r\n")
        .send("227 ok (127,0,0,2," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")\r\n")
        .readUntil("TYPE A\r\n")
        .send("200 ok\r\n")
        .readUntil("MLSD\r\n")
        .send("150 here it comes\r\n226 done\r\n")
        .readUntil("QUIT\r\n")
        .close();
    m_data.onConnection().send("type=file;size=1; a\r\n").close();
    EXPECT_FALSE(failureOfListing()); // the data come from the host of the commands
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAListingThatIsCutButCalledComplete)
{
    untilListing(m_control.onConnection(), m_data.getPort())
        .send("150 here it comes\r\n226 done\r\n")
        .readUntil("QUIT\r\n")
        .close();
    m_data.onConnection().send("type=file;size=1; a\r\ntype=fi").close();
    const auto error = failureOfListing();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "Invalid FTP dir entry: 'type=fi'");
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAReplyThatNeverEnds)
{
    login(m_control.onConnection())
        .readUntil("MLST /x\r\n")
        .send("250-it begins\r\n")
        .sendRepeated(" and goes on\r\n", 1000)
        .stall();
    const auto error = failureOfInfo();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAnAnswerOfAnotherShape)
{
    login(m_control.onConnection()).readUntil("MLST /x\r\n").send("250 fine\r\n").readUntil("QUIT\r\n").close();
    const auto error = failureOfInfo();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "Invalid response to FTP MLST request (no info line found).");
    EXPECT_NE(error->getProps().get("response").find("250 fine\r\n"), kx::String::npos);
    EXPECT_EQ(error->getProps().get("response").find("not-to-be-seen"), kx::String::npos);
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAWrongPassword)
{
    m_control.onConnection()
        .send("220 hello\r\n")
        .readUntil("USER user\r\n")
        .send("331 password\r\n")
        .readUntil("PASS not-to-be-seen\r\n")
        .send("530 no\r\n")
        .readUntil("QUIT\r\n")
        .close();
    const auto error = failureOfInfo();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
    EXPECT_EQ(error->getMessage(), "Login denied: Access denied: 530 (response code: ftp 530)");
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAServerWithoutTLSWhereTLSIsWanted)
{
    m_control.onConnection()
        .send("220 hello\r\n")
        .readUntil("AUTH SSL\r\n")
        .send("500 what\r\n")
        .readUntil("AUTH TLS\r\n")
        .send("500 what\r\n")
        .readUntil("QUIT\r\n")
        .close();
    const CFTPClient::ConnectType type = CFTPClient::ConnectExplicitTLS;
    CFTPClient secure("127.0.0.1:" + kx::toString(m_control.getPort()), "user", "not-to-be-seen", type);
    const auto error = support::errorOf([&] { secure.deleteFile(request(), "/x"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    m_control.join();
    EXPECT_EQ(m_control.received(0).find("not-to-be-seen"), std::string::npos);
    expectUsable();
}

TEST_F(CFTPClientFaultTest, isAWrongCertificate)
{
    const auto& certificates = support::CTestCertificates::get();
    m_control.onConnection().startTLS(certificates.serverCertificate(), certificates.serverKey());
    CFTPClient secure(
        "127.0.0.1:" + kx::toString(m_control.getPort()), "user", "not-to-be-seen", CFTPClient::ConnectImplicitTLS);
    const auto error = support::errorOf([&] { secure.deleteFile(request(), "/x"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    expectUsable();
}

TEST_F(CFTPClientServedTest, listsNothingWhenALineCannotBeRead)
{
    serve({"type=file; a\r\nbroken\r\n"}, {});
    EXPECT_EQ(support::messageOf([this] { client().listDir(request(), "/top"); }), "Invalid FTP dir entry: 'broken'");
}

TEST_F(CFTPClientServedTest, takesAListingOfAnySizeWithoutSafeDefaults)
{
    serve({"type=file; a-longer-name\r\n"}, {});
    EXPECT_EQ(client().listDir(request(), "/top")->getEntries().size(), 1u);
}

TEST_F(CFTPClientServedTest, takesNoListingBeyondTheLimitOfItsSafeDefaults)
{
    untilListing(m_control.onConnection(), m_data.getPort())
        .sendPieces({"150 here it comes\r\n", "226 done\r\n"})
        .readUntil("QUIT\r\n")
        .close();
    m_data.onConnection().send("type=file; a-longer-name\r\n").close();
    client().setSafeDefaults({.maxReceiveBuffer = 20});
    const auto error = support::errorOf([this] { client().listDir(request(), "/"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_FILESIZE_EXCEEDED);
}

TEST_F(CFTPClientServedTest, staysLoggedInWithSafeDefaults)
{
    serve({"type=file; a\r\n", "type=file; b\r\n"}, {});
    client().setSafeDefaults();
    EXPECT_EQ(client().listDir(request(), "/top")->getEntries().size(), 1u);
    EXPECT_EQ(client().listDir(request(), "/top")->getEntries().size(), 1u);
    EXPECT_EQ(m_control.connectionCount(), 1u);
}

TEST_F(CFTPClientServedTest, uploadsTheBytesAsTheyWereWhenPrepared)
{
    login(m_control.onConnection())
        .readUntil("EPSV\r\n")
        .send("229 ok (|||" + std::to_string(m_data.getPort()) + "|)\r\n")
        .readUntil("TYPE I\r\n")
        .send("200 ok\r\n")
        .readUntil("STOR f\r\n")
        .sendPieces({"150 give\r\n", "226 done\r\n"})
        .readUntil("QUIT\r\n")
        .close();
    m_data.onConnection().readToEnd();
    std::string bytes = "original";
    client().prepareUploadRequest(request(), "/f", bytes.data(), static_cast<int>(bytes.size()), false);
    bytes.assign(bytes.size(), 'x');
    request().perform();
    m_data.join();
    EXPECT_EQ(m_data.received(0), "original");
}

TEST_F(CFTPClientServedTest, forgetsWhatWasSetBeforeAnOperation)
{
    serve({}, {"250 gone"});
    const auto earlier = kx::newObj<norla::CNetStringList>();
    earlier->add("NOOP");
    request().setFTPCustomPostCommands(earlier.get());
    client().deleteFile(request(), "/f");
    EXPECT_EQ(commands(), "DELE /f\r\nQUIT\r\n");
}

} // namespace
