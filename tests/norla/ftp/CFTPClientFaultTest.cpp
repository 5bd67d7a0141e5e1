// The FTP client against a server that breaks at every step.
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetStringList.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/CFTPGetInfoResult.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using norla::CFTPClient;
using support::CScript;
using support::CScriptedServer;

/// Ends a connection in some way.
using Fault = std::function<void(CScript&)>;

struct CFaultRow {
    const char* name;
    Fault fault;
};

class CFTPClientFaultTest : public testing::Test {
protected:
    CFTPClient& client() { return *m_client; }
    norla::CNetRequest& request() { return *m_request; }

    static kx::P<CFTPClient> clientFor(unsigned short port)
    {
        return kx::newObj<CFTPClient>(
            "127.0.0.1:" + kx::toString(port), "user", "not-to-be-seen", CFTPClient::ConnectUnencrypted);
    }

    // libcurl says QUIT when it drops a connection that it takes for usable, and waits up to two minutes for an answer: every
    // script that leaves such a connection behind takes the QUIT and closes.

    /// The answers up to the log-in.
    static CScript& login(CScript& script)
    {
        return script.send("220 hello\r\n")
            .readUntil("USER user\r\n")
            .send("331 password\r\n")
            .readUntil("PASS not-to-be-seen\r\n")
            .send("230 in\r\n")
            .readUntil("PWD\r\n")
            .send("257 \"/\"\r\n");
    }

    /// The answers up to the moment when libcurl has said MLSD on the control connection, with this data port.
    static CScript& untilListing(CScript& script, unsigned short dataPort)
    {
        return login(script)
            .readUntil("EPSV\r\n")
            .send("229 ok (|||" + std::to_string(dataPort) + "|)\r\n")
            .readUntil("TYPE A\r\n")
            .send("200 ok\r\n")
            .readUntil("MLSD\r\n");
    }

    kx::P<kx::CError> failureOfListing()
    {
        return support::errorOf([this] {
            client().prepareListDirRequest(request(), "/");
            request().setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(700));
            request().perform();
            norla::CFTPListDirResult(*request().getDefaultReceiveBuffer());
        });
    }

    kx::P<kx::CError> failureOfInfo()
    {
        return support::errorOf([this] {
            client().prepareGetInfoRequest(request(), "/x");
            request().setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(700));
            request().perform();
            norla::CFTPGetInfoResult(*request().getResponseInfo());
        });
    }

    void expectExplained(const kx::P<kx::CError>& error)
    {
        ASSERT_TRUE(error);
        EXPECT_FALSE(error->getMessage().isEmpty());
        EXPECT_EQ(error->getMessage().find("not-to-be-seen"), kx::String::npos) << error->what();
        for (const auto& [key, value] : error->getProps().getMap())
            EXPECT_EQ(value.find("not-to-be-seen"), kx::String::npos) << value;
    }

    /// Shows that the request works, whatever happened to it before.
    void expectUsable()
    {
        CScriptedServer another;
        login(another.onConnection()).readUntil("DELE /x\r\n").send("250 gone\r\n").readUntil("QUIT\r\n").close();
        EXPECT_NO_THROW(clientFor(another.getPort())->deleteFile(request(), "/x"));
        request().reset();
    }

    CScriptedServer m_control;
    CScriptedServer m_data;

    kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();

private:
    kx::P<CFTPClient> m_client = clientFor(m_control.getPort());
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

/// A server that does what it is asked for.
class CFTPClientServedTest : public CFTPClientFaultTest {
protected:
    /// Answers so many listings, from the top down, and then commands with these replies, one each.
    void serve(const std::vector<std::string>& listings, std::initializer_list<const char*> replies)
    {
        CScript& control = login(m_control.onConnection());
        for (size_t i = 0; i < listings.size(); ++i) {
            control.readUntil("EPSV\r\n").send("229 ok (|||" + std::to_string(m_data.getPort()) + "|)\r\n");
            if (i == 0)
                control.readUntil("TYPE A\r\n").send("200 ok\r\n");
            control.readUntil("MLSD").readUntil("\r\n").sendPieces({"150 here it comes\r\n", "226 done\r\n"});
            m_data.onConnection().send(listings[i]).close();
        }
        for (const char* const reply : replies)
            control.readUntil("\r\n").send(std::string(reply) + "\r\n");
        control.readUntil("QUIT\r\n").close();
    }

    /// The commands behind the log-in, but for those that open the data connections of listings.
    std::string commands()
    {
        request().reset();
        m_request = kx::newObj<norla::CNetRequest>(); // says QUIT
        m_control.join();
        std::string all = m_control.received(0);
        const std::string lastOfLogin = "PWD\r\n";
        all.erase(0, all.find(lastOfLogin) + lastOfLogin.size());
        for (const std::string opening : {"EPSV\r\n", "TYPE A\r\n"}) {
            for (size_t at = all.find(opening); at != std::string::npos; at = all.find(opening))
                all.erase(at, opening.size());
        }
        return all;
    }
};

TEST_F(CFTPClientServedTest, listsNothingWhenALineCannotBeRead)
{
    serve({"type=file; a\r\nbroken\r\n"}, {});
    EXPECT_EQ(support::messageOf([this] { client().listDir(request(), "/top"); }), "Invalid FTP dir entry: 'broken'");
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

/// What a tree's listing makes the client do.
class CFTPClientTreeTest : public CFTPClientServedTest {};

TEST_F(CFTPClientTreeTest, isOneListingAndOneRemovalForAnEmptyDirectory)
{
    serve({"type=cdir; .\r\ntype=pdir; ..\r\n"}, {"250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "MLSD top\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, neverLeavesItsTree)
{
    serve({"type=dir; .\r\ntype=dir; ..\r\ntype=dir; \r\ntype=file; ../../victim\r\ntype=dir; /\r\ntype=file; a\r\n"},
        {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "MLSD top\r\nDELE /top/a\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isLeftAtTheFirstFailureAndPassesOverLinks)
{
    serve({"type=file; a\r\ntype=OS.unix=slink:/x; l\r\ntype=file; b\r\ntype=file; c\r\n"}, {"250 gone", "550 no"});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top/"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_TRUE(commands().starts_with("MLSD top\r\nDELE /top//a\r\nDELE /top//b\r\n")) << commands();
    EXPECT_EQ(m_control.received(0).find("RMD"), std::string::npos);
}

TEST_F(CFTPClientTreeTest, isUntouchedWhenItsListingCannotBeRead)
{
    serve({"type=file; a\r\nbroken\r\n"}, {});
    EXPECT_EQ(support::messageOf([this] { client().deleteDirWithAllContents(request(), "/top"); }),
        "Invalid FTP dir entry: 'broken'");
    EXPECT_EQ(commands(), "MLSD top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isLeftWhenItDoesNotEnd)
{
    const std::string name(250, 'd');
    constexpr int levels = 17; // until the path goes on for more than 4096 characters
    serve(std::vector(levels, "type=dir; " + name + "\r\n"), {});
    EXPECT_EQ(support::messageOf([this] { client().deleteDirWithAllContents(request(), "/top"); }),
        kx::String::fromLatin1(
            "FTP directory is nested deeper than 4096 characters: '/top/" + name.substr(0, 95) + "...'."));
}

TEST_F(CFTPClientTreeTest, mayHaveALongPathOfItsOwn)
{
    const std::string top(5000, 't');
    serve({"type=dir; a\r\n", ""}, {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), kx::String::fromLatin1("/" + top));
    EXPECT_TRUE(commands() // too long to be shown
        == "MLSD " + top + "\r\nMLSD " + top + "/a\r\nRMD /" + top + "/a\r\nRMD /" + top + "\r\nQUIT\r\n");
}

struct CEscapedName {
    const char* title;
    const char* name;
    const char* listed; ///< as the server is asked for it
};

class CFTPClientEscapedNameTest : public CFTPClientTreeTest, public testing::WithParamInterface<CEscapedName> {};

TEST_P(CFTPClientEscapedNameTest, countsAsAnEscapeInListingsAndNotInCommands)
{
    const std::string name = GetParam().name;
    serve({"type=dir; " + name + "\r\n", "type=file; f\r\n"}, {"250 gone", "250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(),
        std::string("MLSD top\r\nMLSD top/") + GetParam().listed + "\r\nDELE /top/" + name + "/f\r\nRMD /top/" + name
            + "\r\nRMD /top\r\nQUIT\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientEscapedNameTest,
    testing::Values(CEscapedName{"escape", "a%41b", "aAb"}, CEscapedName{"percentSign", "100%", "100%"},
        CEscapedName{"escapeOfANumberSign", "a%23b", "a#b"}),
    [](const auto& row) { return row.param.title; });

class CFTPClientCutNameTest : public CFTPClientTreeTest, public testing::WithParamInterface<const char*> {};

TEST_P(CFTPClientCutNameTest, endsTheTreeBecauseItIsAskedForAsAFile)
{
    const std::string passive = "229 ok (|||" + std::to_string(m_data.getPort()) + "|)";
    serve({std::string("type=dir; ") + GetParam() + "\r\n"}, {passive.c_str(), "200 binary", "550 no file"});
    m_data.onConnection().readToEnd();
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_REMOTE_FILE_NOT_FOUND);
    EXPECT_EQ(commands(), "MLSD top\r\nTYPE I\r\nSIZE top/a\r\nQUIT\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientCutNameTest, testing::Values("a#b", "a?b"),
    [](const auto& row) { return row.index == 0 ? "numberSign" : "questionMark"; });

TEST_F(CFTPClientTreeTest, isLeftAtANameWithALineEndInAURL)
{
    serve({"type=dir; %0d%0aDELE%20x\r\n"}, {});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_URL_MALFORMAT);
    EXPECT_EQ(commands(), "MLSD top\r\n");
}

} // namespace
