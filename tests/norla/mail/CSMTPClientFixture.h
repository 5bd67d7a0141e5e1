#pragma once

#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetRequest.h"
#include "norla/mail/CSMTPClient.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/mail/mimeBytes.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace mail_test {

using norla::CSMTPClient;
using norla::CSMTPParams;
using support::errorOf;
using Texts = std::vector<std::string>;
using Recipients = kx::TArray<kx::String>;

/// The options that a mail leaves behind.
inline const Texts clearing = {"CONNECT_ONLY=0", "UPLOAD=0", "MAIL_FROM=", "MAIL_RCPT=null"};

inline constexpr const char* shortMessage = "Subject: 1\r\n\r\ntext\r\n";
inline const std::string conversation
    = std::string("MAIL FROM:<a@x>\r\nRCPT TO:<b@x>\r\nDATA\r\n") + shortMessage + ".\r\nQUIT\r\n";

inline norla::CSMTPParams paramsOf(int port, int connectType = CSMTPParams::ConnectUnencrypted,
    const kx::String& userName = "", const kx::String& password = "")
{
    CSMTPParams params;
    params.host = "h";
    params.port = port;
    params.connectType = static_cast<CSMTPParams::ConnectType>(connectType);
    params.userName = userName;
    params.password = password;
    return params;
}

inline Texts operator+(Texts first, const Texts& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// A client and the conversations that it holds.
class CSMTPClientFixture : public testing::Test {
protected:
    CSMTPParams params(const kx::String& userName = "", const kx::String& password = "") const
    {
        CSMTPParams params = paramsOf(m_server.getPort(), CSMTPParams::ConnectUnencrypted, userName, password);
        params.host = "127.0.0.1";
        return params;
    }

    /// The next connection, up to the answer to EHLO.
    support::CScript& greet(const std::string& extensions = "250 SIZE 1000000\r\n")
    {
        return m_server.onConnection().send("220 ready\r\n").readUntil("\r\n").send("250-localhost\r\n" + extensions);
    }

    /// Up to the message, which is asked for.
    support::CScript& greetAndTakeEnvelope() { return takeEnvelope(greet()); }

    static support::CScript& takeEnvelope(support::CScript& connection)
    {
        return connection.readUntil("\r\n")
            .send("250 sender taken\r\n")
            .readUntil("\r\n")
            .send("250 recipient taken\r\n")
            .readUntil("DATA\r\n")
            .send("354 go on\r\n");
    }

    support::CScript& takeMail() { return takeMail(greet()); }

    static support::CScript& takeMail(support::CScript& connection)
    {
        return takeMessage(connection).readUntil("QUIT\r\n");
    }

    /// A mail, and no goodbye.
    static support::CScript& takeMessage(support::CScript& connection)
    {
        return takeEnvelope(connection).readUntil("\r\n.\r\n").send("250 taken\r\n");
    }

    /// The next connection, which is upgraded, up to the answer to the EHLO behind that.
    support::CScript& greetWithStartTLS()
    {
        const auto& certificates = support::CTestCertificates::get();
        return greet("250 STARTTLS\r\n")
            .readUntil("STARTTLS\r\n")
            .send("220 go ahead\r\n")
            .startTLS(certificates.serverCertificate(), certificates.serverKey())
            .readUntil("\r\n")
            .send("250 localhost\r\n");
    }

    kx::P<CSMTPClient> newClient(const kx::String& userName = "", const kx::String& password = "")
    {
        return kx::newObj<CSMTPClient>(params(userName, password));
    }

    static void prepare(norla::CNetRequest& request, const CSMTPParams& params, const Recipients& recipients = {"b@x"})
    {
        CSMTPClient::makeSendMailRequest(
            request, params, "a@x", recipients, kx::newObj<kx::CBufferStream>(bufferOf(shortMessage)).get());
    }

    static void send(
        CSMTPClient& client, const std::string& message = shortMessage, const Recipients& recipients = {"b@x"})
    {
        client.sendMail("a@x", recipients, *bufferOf(message));
    }

    /// What went wrong for the server. Newer libcurls read to the end of TLS when they close a connection, which nobody
    /// waits for: they then say that it was cut off.
    Texts problems() const
    {
        Texts all = m_server.problems();
        if (support::isLibcurlSince(8, 14))
            std::erase_if(all, [](const std::string& problem) {
                return problem.find(", after its script: TLS read: ") != std::string::npos;
            });
        return all;
    }

    /// What the server read behind the line of EHLO, which has the name of this machine.
    std::string received(size_t connection = 0)
    {
        m_server.join();
        EXPECT_EQ(problems(), Texts());
        const std::string all = m_server.received(connection);
        EXPECT_TRUE(all.starts_with("EHLO ")) << all;
        return all.substr(all.find('\n') + 1);
    }

    /// Fails as the server's script says, which closes the connection, is cleared, and the next send succeeds on a
    /// connection of its own.
    kx::P<kx::CError> expectFailureAndNextSend(const Recipients& recipients = {"b@x"})
    {
        auto client = newClient();
        auto error = errorOf([&client, &recipients] { send(*client, "lost\r\n", recipients); });
        const Texts options = m_calls.takeOptions();
        EXPECT_TRUE(
            options.size() > clearing.size() && std::equal(clearing.rbegin(), clearing.rend(), options.rbegin()));
        // libcurl keeps the connection of a message that was refused at its end: it must not be tried while it is being
        // closed.
        m_server.join();
        takeMail();
        send(*client);
        client = nullptr;
        EXPECT_EQ(received(1), conversation);
        return error;
    }

    support::CCurlCalls m_calls;
    support::CScriptedServer m_server;
};

} // namespace mail_test
