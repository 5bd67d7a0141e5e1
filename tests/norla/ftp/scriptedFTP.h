#pragma once

#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetStringList.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/CFTPGetInfoResult.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace ftp {

using norla::CFTPClient;
using support::CScript;
using support::CScriptedServer;

/// An FTP client and the two servers that it speaks to: one for commands, one for data.
class CFTPClientFaultTest : public testing::Test {
protected:
    CFTPClient& client() { return *m_client; }
    norla::CNetRequest& request() { return *m_request; }

    static kx::P<CFTPClient> clientFor(unsigned short port)
    {
        return kx::newObj<CFTPClient>(
            "127.0.0.1:" + kx::toString(port), "user", "not-to-be-seen", CFTPClient::ConnectUnencrypted);
    }

    // libcurl says QUIT when it drops a connection that it takes for usable, and waits up to two minutes for an answer:
    // every script that leaves such a connection behind takes the QUIT and closes.

    /// The answers up to the log-in. @param place what the server says about where that leads to
    static CScript& login(CScript& script, const std::string& place = "257 \"/\"")
    {
        return script.send("220 hello\r\n")
            .readUntil("USER user\r\n")
            .send("331 password\r\n")
            .readUntil("PASS not-to-be-seen\r\n")
            .send("230 in\r\n")
            .readUntil("PWD\r\n")
            .send(place + "\r\n");
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

/// A server that does what it is asked for.
class CFTPClientServedTest : public CFTPClientFaultTest {
protected:
    /// What serve() takes for a listing that the server refuses.
    static constexpr char refused[] = "550 no such directory\r\n";

    /// Answers so many listings, from the top down, and then commands with these replies, one each.
    void serve(const std::vector<std::string>& listings, std::initializer_list<const char*> replies)
    {
        CScript& control = login(m_control.onConnection(), m_place);
        serveListings(control, listings);
        for (const char* const reply : replies)
            control.readUntil("\r\n").send(std::string(reply) + "\r\n");
        control.readUntil("QUIT\r\n").close();
    }

    /// The listings alone, behind a log-in.
    void serveListings(CScript& control, const std::vector<std::string>& listings)
    {
        for (size_t i = 0; i < listings.size(); ++i)
            serveListing(control, listings[i], i == 0);
    }

    void serveListing(CScript& control, const std::string& listing, bool isFirst = false)
    {
        control.readUntil("EPSV\r\n").send("229 ok (|||" + std::to_string(m_data.getPort()) + "|)\r\n");
        if (isFirst)
            control.readUntil("TYPE A\r\n").send("200 ok\r\n");
        control.readUntil("MLSD").readUntil("\r\n");
        if (listing == refused) {
            control.send(refused);
            m_data.onConnection().readToEnd();
        } else {
            control.sendPieces({"150 here it comes\r\n", "226 done\r\n"});
            m_data.onConnection().send(listing).close();
        }
    }

    /// As serveListing(), and then the control connection ends before anything else can be asked for on it.
    void serveLastListing(CScript& control, const std::string& listing, bool isFirst = false)
    {
        control.readUntil("EPSV\r\n").send("229 ok (|||" + std::to_string(m_data.getPort()) + "|)\r\n");
        if (isFirst)
            control.readUntil("TYPE A\r\n").send("200 ok\r\n");
        control.readUntil("MLSD").readUntil("\r\n").send("150 here it comes\r\n").sendAndClose("226 done\r\n");
        m_data.onConnection().send(listing).close();
    }

    /// What the server says about where a log-in leads to.
    std::string m_place = "257 \"/\"";

    /// The commands behind the log-in, but for those that open the data connections of listings.
    std::string commands(size_t connection = 0)
    {
        request().reset();
        m_request = kx::newObj<norla::CNetRequest>(); // says QUIT
        m_control.join();
        std::string all = m_control.received(connection);
        const std::string lastOfLogin = "PWD\r\n";
        all.erase(0, all.find(lastOfLogin) + lastOfLogin.size());
        for (const std::string opening : {"EPSV\r\n", "TYPE A\r\n"}) {
            for (size_t at = all.find(opening); at != std::string::npos; at = all.find(opening))
                all.erase(at, opening.size());
        }
        return all;
    }
};

} // namespace ftp
