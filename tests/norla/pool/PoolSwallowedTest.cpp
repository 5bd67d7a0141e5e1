// An open connection that the server closes in the moment in which it is used again: that is no failure of anybody's,
// and somebody begins anew. With HTTP/1.1 that is libcurl as a rule, with FTP and SMTP the pool.
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CTestCertificates.h"

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace {

using norla::CTransfer;
using norla::TransferState;
using support::CScript;
using Script = std::function<void(CScript&)>;

/// An open connection that the server closes in the moment in which it is used again.
class PoolSwallowedTest : public CPoolFixture {
protected:
    void expectNoFailure(const std::string& method, const Script& end)
    {
        replacePool({});
        end(server().onConnection().readHead().send(ok("first")));
        server().onConnection().readHead().send(ok("")).readToEnd();
        const auto first = pool().start(newRequest().get());
        EXPECT_TRUE(first->wait(longest));
        const auto request = newRequest();
        if (method.starts_with('P'))
            request->setSendDataAsUTF8("text");
        request->setHTTPMethod(kx::String::fromLatin1(method));
        const auto transfer = pool().start(request.get());
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "") << method;
    }
};

TEST_F(PoolSwallowedTest, isNoFailure)
{
    const std::vector<Script> ends = {[](CScript& script) { script.close(); },
        [](CScript& script) { script.readHead().close(); }, [](CScript& script) { script.readHead().reset(); },
        [](CScript& script) { script.readBytes(1).closeHard(); }};
    for (const char* method : {"GET", "HEAD", "PUT", "POST"}) {
        for (size_t end = 0; end < ends.size() && !HasFailure(); ++end)
            expectNoFailure(method, ends[end]);
    }
}

// libcurl does not notice there in each case that it may begin anew.
TEST_F(PoolSwallowedTest, isNoFailureWhereTheConnectionIsEncrypted)
{
    constexpr size_t bodySize = 5'000'000;
    constexpr size_t taken = 500'000;
    const auto& certificates = support::CTestCertificates::get();
    const auto start = [&](CScript& script) -> CScript& {
        return script.startTLS(certificates.serverCertificate(), certificates.serverKey()).readHead();
    };
    for (int count = 0; count < 8 && !HasFailure(); ++count) {
        replacePool({});
        start(server().onConnection()).send(ok("first")).readHead().readBytes(taken).reset();
        start(server().onConnection()).readBytes(bodySize).send(ok("good"));
        std::vector<Request> requests;
        for (const size_t size : {size_t{0}, bodySize}) {
            const auto request = requests.emplace_back(requestTo(server().url("/", "https")));
            request->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(certificates.caFile().native()));
            request->setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 1);
            if (size != 0) {
                request->setSendDataAsUTF8(kx::String::fromLatin1(std::string(size, 'x')));
                request->setHTTPMethod("PUT");
            }
            const auto transfer = pool().start(request.get());
            EXPECT_TRUE(transfer->wait(longest));
            EXPECT_EQ(failureOf(transfer), "");
        }
        EXPECT_EQ(bodyOf(requests.back()), "good");
    }
}

/// What becomes of an open connection on which the next command, of which this is the end, is said.
std::vector<Script> endsBehind(const std::string& command)
{
    return {[](CScript& script) { script.close(); }, [=](CScript& script) { script.readUntil(command).close(); },
        [=](CScript& script) { script.readUntil(command).reset(); },
        [](CScript& script) { script.readBytes(1).closeHard(); }};
}

class PoolSwallowedCommandTest : public CPoolFixture {
protected:
    /// One attempt, as far as anybody is told.
    Transfer expectOneAttempt(const Request& request)
    {
        CTransfer::Options options;
        options.retries = {.attempts = 3};
        const auto transfer = pool().start(request.get(), options);
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
        EXPECT_EQ(transfer->getAttempts().size(), 1U);
        return transfer;
    }
};

class PoolSwallowedFTPTest : public PoolSwallowedCommandTest {
protected:
    static CScript& logIn(CScript& script)
    {
        return script.send("220 hello\r\n")
            .readUntil("\r\n")
            .send("230 in\r\n")
            .readUntil("PWD\r\n")
            .send("257 \"/\"\r\n");
    }

    /// Up to the command that fetches or stores the file.
    CScript& transferUntil(CScript& script, const std::string& command)
    {
        return script.readUntil("EPSV\r\n")
            .send("229 ok (|||" + std::to_string(m_data.getPort()) + "|)\r\n")
            .readUntil("TYPE I\r\n")
            .send("200 ok\r\n")
            .readUntil(command);
    }

    Request fileRequest() { return requestTo(server().url("/file", "ftp")); }

    support::CScriptedServer m_data;
};

TEST_F(PoolSwallowedFTPTest, fetchesAFileAllTheSame)
{
    const auto serve = [this](CScript& script) -> CScript& {
        m_data.onConnection().send("good").close();
        transferUntil(logIn(script), "SIZE file\r\n").send("500 no\r\n").readUntil("RETR file\r\n");
        return script.send("150 now\r\n226 done\r\n");
    };
    for (const Script& end : endsBehind("EPSV\r\n")) {
        replacePool({});
        end(serve(server().onConnection()));
        expectOneAttempt(fileRequest());
        serve(server().onConnection()).readUntil("QUIT\r\n");
        const auto request = fileRequest();
        expectOneAttempt(request);
        EXPECT_EQ(bodyOf(request), "good");
    }
}

TEST_F(PoolSwallowedFTPTest, storesAFileAllTheSame)
{
    const auto serve = [this](CScript& script) -> CScript& {
        m_data.onConnection().readToEnd();
        transferUntil(logIn(script), "STOR file\r\n");
        return script.send("150 now\r\n").send("226 done\r\n");
    };
    size_t connections = 0;
    for (const Script& end : endsBehind("EPSV\r\n")) {
        replacePool({});
        end(serve(server().onConnection()));
        serve(server().onConnection()).readUntil("QUIT\r\n");
        for (const char* const text : {"first", "second"}) {
            const auto request = fileRequest();
            request->setUpload(true);
            request->setSendDataAsUTF8(kx::String::fromLatin1(text));
            expectOneAttempt(request);
            EXPECT_TRUE(waitUntil([&] { return m_data.received(connections) == text; }));
            ++connections;
        }
    }
}

// Nobody else takes its room in between.
TEST_F(PoolSwallowedFTPTest, goesOnBeforeThoseThatWait)
{
    replacePool({.atOnce = 1});
    std::promise<void> gate;
    logIn(server().onConnection())
        .readUntil("CWD first\r\n")
        .send("250 ok\r\n")
        .readUntil("CWD /\r\n")
        .waitFor(gate.get_future().share())
        .close();
    logIn(server().onConnection())
        .readUntil("CWD ")
        .readUntil("\r\n")
        .send("250 ok\r\n")
        .readUntil("CWD /\r\n")
        .send("250 ok\r\n")
        .readUntil("CWD ")
        .readUntil("\r\n")
        .send("250 ok\r\n")
        .readToEnd();
    std::vector<Transfer> transfers;
    for (const char* const folder : {"/first/", "/swallowed/", "/behind/"}) {
        const auto request = requestTo(server().url(folder, "ftp"));
        request->setOptionInt(CURLOPT_NOBODY, 1);
        transfers.push_back(pool().start(request.get()));
    }
    gate.set_value();
    for (const Transfer& transfer : transfers) {
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
    }
    const std::string received = server().received(1);
    EXPECT_LT(received.find("CWD swallowed\r\n"), received.find("CWD behind\r\n")) << received;
}

class PoolSwallowedMailTest : public PoolSwallowedCommandTest {
protected:
    static CScript& greet(CScript& script)
    {
        return script.send("220 hello\r\n").readUntil("EHLO ").readUntil("\r\n").send("250 hello\r\n");
    }

    static CScript& take(CScript& script)
    {
        return script.readUntil("MAIL FROM:<me@example.org>\r\n")
            .send("250 yes\r\n")
            .readUntil("RCPT TO:<them@example.org>\r\n")
            .send("250 yes\r\n")
            .readUntil("DATA\r\n")
            .send("354 go on\r\n")
            .readUntil("\r\n.\r\n")
            .send("250 taken\r\n");
    }

    Request mailRequest(const std::string& text)
    {
        auto request = requestTo(server().url("/", "smtp"));
        request->setOptionPtr(CURLOPT_MAIL_RCPT, m_recipients.get());
        request->setOptionString(CURLOPT_MAIL_FROM, "<me@example.org>");
        request->setUpload(true);
        request->setSendDataAsUTF8(kx::String::fromLatin1(text));
        return request;
    }

    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> m_recipients{
        curl_slist_append(nullptr, "<them@example.org>"), &curl_slist_free_all};
};

TEST_F(PoolSwallowedMailTest, sendsAMailAllTheSame)
{
    size_t connection = 0;
    for (const Script& end : endsBehind("MAIL FROM:<me@example.org>\r\n")) {
        replacePool({});
        end(take(greet(server().onConnection())));
        take(greet(server().onConnection())).readUntil("QUIT\r\n");
        expectOneAttempt(mailRequest("first\r\n"));
        expectOneAttempt(mailRequest("second\r\n"));
        const std::string received = server().received(connection + 1);
        EXPECT_NE(received.find("DATA\r\nsecond\r\n.\r\n"), std::string::npos) << received;
        connection += 2;
    }
}

TEST_F(PoolSwallowedMailTest, isAFailureOnceTheTextWasTakenIn)
{
    take(greet(server().onConnection()))
        .readUntil("MAIL FROM:<me@example.org>\r\n")
        .send("250 yes\r\n")
        .readUntil("RCPT TO:<them@example.org>\r\n")
        .send("250 yes\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .close();
    expectOneAttempt(mailRequest("first\r\n"));
    CTransfer::Options options;
    options.retries = {.attempts = 3};
    const auto transfer = pool().start(mailRequest("second\r\n").get(), options);
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
    EXPECT_EQ(server().connectionCount(), 1U);
}

} // namespace
