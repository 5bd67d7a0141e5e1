#include "norla/core/performWithRetries.h"

#include "kx/streams/CBufferStream.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CFileSink.h"
#include "norla/core/CFileSource.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/errorKind.h"
#include "norla/http/CFormData.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <utility>

namespace {

using kx::CTimeSpan;
using norla::CAttempt;
using norla::CRetryPolicy;
using Path = norla::CNetRequest::Path;
using Texts = std::vector<std::string>;

constexpr auto ms = &CTimeSpan::fromMilliseconds;

std::string status(int code, const std::string& headers = "")
{
    return "HTTP/1.1 " + std::to_string(code) + " Status\r\nContent-Length: 0\r\n" + headers + "\r\n";
}

/// In a world in which pauses are noted and not waited for.
class PerformWithRetriesTest : public CRequestFixture {
protected:
    using Script = std::function<void(support::CScript&)>;

    /// Of connections that each end in the same way.
    void serve(int count, const Script& script)
    {
        for (int i = 0; i < count; ++i)
            script(server().onConnection());
    }

    void failTimes(int count, int code, const std::string& headers = "")
    {
        serve(count, [&](support::CScript& script) { script.readHead().send(status(code, headers)); });
    }

    kx::TArray<CAttempt> perform(const CRetryPolicy& policy = {}, const std::string& scheme = "http")
    {
        request().setURL(kx::String::fromUTF8(server().url("/", scheme)));
        return norla::performWithRetries(request(), policy);
    }

    /// The error that it ends with; null when it succeeds.
    kx::P<kx::CError> errorOf(const CRetryPolicy& policy = {}, const std::string& scheme = "http")
    {
        try {
            perform(policy, scheme);
        } catch (const kx::CError& error) {
            return error.clone();
        }
        return nullptr;
    }

    std::string responseCodeOf(const kx::P<kx::CError>& error)
    {
        return error ? error->getProps().get("responseCode").toUTF8() : "(no error)";
    }

    /// What it sends twice with a body, first in vain.
    void expectSentTwice(size_t size)
    {
        server()
            .onConnection()
            .readHead()
            .readBytes(size)
            .send(status(503))
            .readHead()
            .readBytes(size)
            .send(ok("good"));
        EXPECT_EQ(perform({.repeatUnsafe = true}).size(), 2U);
        const std::string bytes = received();
        ASSERT_EQ(bytes.size() % 2, 0U);
        EXPECT_EQ(bytes.substr(0, bytes.size() / 2), bytes.substr(bytes.size() / 2));
        EXPECT_GE(bytes.size(), 2 * size);
    }

    support::CWaitCalls m_waits;
};

TEST_F(PerformWithRetriesTest, firstAttemptMayBeTheLast)
{
    answer(ok("good"));
    EXPECT_EQ(perform().size(), 1U);
    EXPECT_EQ(body(), "good");
    EXPECT_EQ(m_waits.takeWaits(), Texts());
}

TEST_F(PerformWithRetriesTest, transferSucceedsBehindStatusesThatPass)
{
    for (const int code : {408, 425, 429, 500, 502, 503, 504}) {
        request().reset();
        failTimes(2, code);
        answer(ok("good"));
        const auto attempts = perform();
        ASSERT_EQ(attempts.size(), 3U) << code;
        EXPECT_EQ(responseCodeOf(attempts[1].error), std::to_string(code));
        EXPECT_FALSE(attempts[2].error);
        EXPECT_EQ(body(), "good");
    }
}

TEST_F(PerformWithRetriesTest, transferSucceedsBehindLostConnections)
{
    const std::vector<Script> faults = {[](support::CScript& script) { script.readHead().close(); },
        [](support::CScript& script) { script.readHead().reset(); },
        [](support::CScript& script) {
            script.readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").close();
        },
        [](support::CScript& script) {
            script.readHead().send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n").reset();
        }};
    for (size_t fault = 0; fault < faults.size(); ++fault) {
        request().reset();
        serve(2, faults[fault]);
        answer(ok("good"));
        EXPECT_EQ(perform().size(), 3U) << fault;
        EXPECT_EQ(body(), "good") << fault;
    }
}

TEST_F(PerformWithRetriesTest, transferSucceedsBehindAnAnswerThatBreaksOffInItsHeader)
{
    request().setSafeDefaults();
    answer("HTTP/1.1 200 OK\r\nServer: x\r\nConten").close();
    answer(ok("x"));
    const auto attempts = perform();
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_EQ(attempts[0].error->getCode(), CURLE_PARTIAL_FILE);
    EXPECT_EQ(body(), "x");
}

TEST_F(PerformWithRetriesTest, errorOfASinkBehindAnAnswerThatBrokeOffInItsHeaderIsToldAtOnce)
{
    class CFailingSink : public kx::CBase, public virtual norla::IDataSink {
    public:
        int write(const unsigned char*, int, int, const HeaderMap&) override
        {
            throw norla::CCURLError(CURLE_RECV_ERROR, "not today", "", 0, "");
        }
        bool canBeginAgain() const override { return true; }
    };
    request().setSafeDefaults();
    request().setReceiveDataSink(kx::newObj<CFailingSink>().get());
    answer("HTTP/1.1 200 OK\r\nServer: x\r\nConten").close();
    answer(ok("x"));
    EXPECT_TRUE(errorOf());
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(PerformWithRetriesTest, transferSucceedsBehindHandshakesThatBreakOff)
{
    const auto& certificates = support::CTestCertificates::get();
    request().setRootCertBundlePath(Path::fromBytes(certificates.caFile().native()));
    server().onConnection().readBytes(5).reset();
    server().onConnection().readBytes(5).close();
    server()
        .onConnection()
        .startTLS(certificates.serverCertificate(), certificates.serverKey())
        .readHead()
        .send(ok("good"));
    const auto attempts = perform({}, "https");
    ASSERT_EQ(attempts.size(), 3U);
    EXPECT_EQ(attempts[0].error->getCode(), CURLE_SSL_CONNECT_ERROR);
    EXPECT_EQ(attempts[1].error->getCode(), CURLE_SSL_CONNECT_ERROR);
}

TEST_F(PerformWithRetriesTest, serverThatNobodyTrustsIsNotAskedAgain)
{
    const auto& certificates = support::CTestCertificates::get();
    server().onConnection().startTLS(certificates.serverCertificate(), certificates.serverKey());
    const auto error = errorOf({}, "https");
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Certificate);
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(PerformWithRetriesTest, lastErrorIsTheOneThatIsTold)
{
    failTimes(1, 500);
    failTimes(1, 502);
    failTimes(1, 504);
    EXPECT_EQ(responseCodeOf(errorOf()), "504");
    EXPECT_EQ(server().connectionCount(), 1U + 2U);
}

TEST_F(PerformWithRetriesTest, whatStaysIsToldAtOnce)
{
    for (const int code : {400, 401, 403, 404, 405, 409, 410, 413, 416, 501, 505, 507}) {
        support::CScriptedServer server;
        server.onConnection().readHead().send(status(code));
        request().setURL(kx::String::fromUTF8(server.url()));
        EXPECT_THROW(norla::performWithRetries(request()), norla::CCURLError) << code;
        EXPECT_EQ(server.connectionCount(), 1U) << code;
    }
    EXPECT_EQ(m_waits.takeWaits(), Texts());
}

TEST_F(PerformWithRetriesTest, nobodyThereIsTriedAsOftenAsTold)
{
    const support::CRefusedPort port;
    request().setURL(kx::String::fromUTF8(port.url()));
    EXPECT_THROW(norla::performWithRetries(request(), {.attempts = 4, .jitter = false}), norla::CCURLError);
    EXPECT_EQ(m_waits.takeWaits(), (Texts{"sleep 500", "sleep 1000", "sleep 2000"}));
}

TEST_F(PerformWithRetriesTest, pausesAreThoseThatAreRecorded)
{
    failTimes(2, 500);
    answer(ok("good"));
    const auto attempts = perform({.seed = 7});
    Texts expected;
    for (const CAttempt& attempt : attempts) {
        if (attempt.error)
            expected.push_back("sleep " + std::to_string((attempt.pause.getMicroseconds() + 999) / 1000));
    }
    EXPECT_EQ(m_waits.takeWaits(), expected);
}

TEST_F(PerformWithRetriesTest, serverIsLeftAloneAsLongAsItWants)
{
    failTimes(1, 503, "Retry-After: 3\r\n");
    failTimes(1, 429, "Date: Sun, 06 Nov 1994 08:49:30 GMT\r\nRetry-After: Sun, 06 Nov 1994 08:49:37 GMT\r\n");
    answer(ok("good"));
    EXPECT_EQ(perform().size(), 3U);
    EXPECT_EQ(m_waits.takeWaits(), (Texts{"sleep 3000", "sleep 7000"}));
}

TEST_F(PerformWithRetriesTest, bufferIsSentAgain)
{
    const std::string bytes(100'000, 'x');
    norla::CNetRequest::Buffer buffer;
    buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    request().setSendDataBuffer(&buffer);
    request().setHTTPMethod("PUT");
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->addEmpty("Expect");
    request().setCustomHTTPHeaders(headers.get());
    expectSentTwice(bytes.size());
}

TEST_F(PerformWithRetriesTest, textIsSentAgain)
{
    request().setSendDataAsUTF8("text");
    request().setHTTPMethod("POST");
    expectSentTwice(4);
}

TEST_F(PerformWithRetriesTest, bodyThatLibcurlCopiesIsSentAgain)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "text");
    expectSentTwice(4);
}

TEST_F(PerformWithRetriesTest, fileIsSentAgain)
{
    const support::CTemporaryFolder folder;
    const auto source = kx::newObj<norla::CFileSource>(Path::fromBytes(folder.write("file", "content").native()));
    request().setSendDataSource(source.get());
    request().setSendDataSize(source->getLength());
    request().setHTTPMethod("POST");
    expectSentTwice(7);
}

TEST_F(PerformWithRetriesTest, formIsSentAgain)
{
    const support::CTemporaryFolder folder;
    const auto form = kx::newObj<norla::CFormData>();
    form->addText("a", "text");
    form->addFile("b", Path::fromBytes(folder.write("file", "content").native()));
    request().setFormData(form.get());
    expectSentTwice(static_cast<size_t>(form->getLength()));
}

TEST_F(PerformWithRetriesTest, bodyThatCannotBeSentAgainIsNoErrorOfItsOwn)
{
    class CPipeStream : public kx::CBase, public virtual kx::IInStream {
    public:
        int read(unsigned char*, int) override { return std::exchange(m_left, 0); }
        long long getLength() override { return -1; }
        void seek(long long) override { throw kx::CError("There is no way back."); }
        long long getPosition() override { return 4 - m_left; }

    private:
        int m_left = 4;
    };
    request().setSendDataStream(kx::newObj<CPipeStream>().get());
    request().setSendDataSize(4);
    request().setHTTPMethod("PUT");
    server().onConnection().readHead().readBytes(4).send(status(503));
    EXPECT_EQ(responseCodeOf(errorOf()), "503");
}

TEST_F(PerformWithRetriesTest, postIsNotSentAgain)
{
    request().setSendDataAsUTF8("text");
    request().setHTTPMethod("POST");
    server().onConnection().readHead().readBytes(4).send(status(503));
    EXPECT_EQ(responseCodeOf(errorOf()), "503");
    EXPECT_EQ(m_waits.takeWaits(), Texts());
}

// To rewind its body would send the wrong bytes.
TEST_F(PerformWithRetriesTest, requestThatRunsElsewhereIsLeftAlone)
{
    const auto stream = kx::newObj<kx::CBufferStream>();
    stream->write(reinterpret_cast<const unsigned char*>("body"), 4); // and stands behind it
    request().setUpload(true);
    request().setSendDataStream(stream.get());
    ASSERT_TRUE(request().claim());
    const auto always = [](const kx::CError&) { return true; };
    EXPECT_TRUE(errorOf({.repeatUnsafe = true, .isTransient = always}));
    EXPECT_EQ(stream->getPosition(), 4);
    request().leaveManager();
}

TEST_F(PerformWithRetriesTest, fileHasTheLastAnswerAlone)
{
    const support::CTemporaryFolder folder;
    const auto sink = kx::newObj<norla::CFileSink>(request(), Path::fromBytes((folder.path() / "file").native()));
    request().setReceiveDataSink(sink.get());
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").close();
    answer(ok("good"));
    EXPECT_EQ(perform().size(), 2U);
    sink->finish();
    EXPECT_EQ(folder.read("file"), "good");
}

// Whatever it says about a transfer of its own.
TEST_F(PerformWithRetriesTest, transferThatHasSucceededIsNotRepeatedForWhatItsListenerThrows)
{
    class CFailingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
    public:
        void onNetRequestDone(norla::CNetRequest*, const kx::CError*) override
        {
            throw norla::CCURLError(CURLE_COULDNT_CONNECT, "elsewhere", "", 0, "");
        }
    };
    request().setDoneListener(kx::newObj<CFailingListener>().get());
    serve(3, [](support::CScript& script) { script.readHead().send(ok("good")); });
    const auto error = errorOf({.attempts = 3});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(server().connectionCount(), 1U);
    request().setDoneListener(nullptr);
    EXPECT_EQ(perform().size(), 1U);
}

TEST_F(PerformWithRetriesTest, listenerIsToldOfEachAttempt)
{
    class CCountingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
    public:
        void onNetRequestDone(norla::CNetRequest*, const kx::CError* error) override { ends += error ? 'f' : 's'; }
        std::string ends;
    };
    const auto listener = kx::newObj<CCountingListener>();
    request().setDoneListener(listener.get());
    failTimes(2, 500);
    answer(ok("good"));
    perform();
    EXPECT_EQ(listener->ends, "ffs");
}

TEST_F(PerformWithRetriesTest, mailIsSentAgainUntilTheServerTakesItsData)
{
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> recipients(
        curl_slist_append(nullptr, "<them@example.org>"), &curl_slist_free_all);
    request().setOptionPtr(CURLOPT_MAIL_RCPT, recipients.get());
    request().setOptionString(CURLOPT_MAIL_FROM, "<me@example.org>");
    request().setUpload(true);
    request().setSendDataAsUTF8("Subject: a\r\n\r\nb\r\n");
    const auto greet = [](support::CScript& script) -> support::CScript& {
        return script.send("220 hi\r\n").readUntil("\r\n").send("250 hi\r\n").readUntil("\r\n");
    };
    greet(server().onConnection()).send("451 greylisted\r\n");
    greet(server().onConnection()).send("250 ok\r\n").readUntil("\r\n").send("451 greylisted\r\n");
    greet(server().onConnection())
        .send("250 ok\r\n")
        .readUntil("\r\n")
        .send("250 ok\r\n")
        .readUntil("DATA\r\n")
        .send("354 go\r\n")
        .readUntil("\r\n.\r\n")
        .send("451 no space\r\n");
    const auto error = errorOf({.attempts = 10}, "smtp");
    ASSERT_TRUE(error);
    EXPECT_NE(error->getMessage().find("451"), kx::String::npos);
    EXPECT_EQ(server().connectionCount(), 3U);
    request().setOptionPtr(CURLOPT_MAIL_RCPT, nullptr);
}

TEST_F(PerformWithRetriesTest, mailServerThatIsBusyIsAskedAgain)
{
    serve(3, [](support::CScript& script) { script.send("421 too many\r\n"); });
    EXPECT_TRUE(errorOf({}, "smtp"));
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(PerformWithRetriesTest, fileServerThatIsBusyIsAskedAgain)
{
    serve(3, [](support::CScript& script) { script.send("421 too many\r\n"); });
    EXPECT_EQ(responseCodeOf(errorOf({}, "ftp")), "421");
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(PerformWithRetriesTest, fileServerThatRefusesTheLoginIsNotAskedAgain)
{
    server()
        .onConnection()
        .send("220 hi\r\n")
        .readUntil("\r\n")
        .send("331 password?\r\n")
        .readUntil("\r\n")
        .send("530 no\r\n");
    EXPECT_TRUE(errorOf({}, "ftp"));
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(PerformWithRetriesTest, openConnectionThatTheServerClosesIsNoAttempt)
{
    const std::vector<Script> ends = {[](support::CScript& script) { script.close(); },
        [](support::CScript& script) { script.readHead().close(); },
        [](support::CScript& script) { script.readHead().reset(); },
        [](support::CScript& script) { script.readBytes(1).closeHard(); }};
    for (const char* method : {"GET", "HEAD", "PUT", "POST"}) {
        for (size_t end = 0; end < ends.size(); ++end) {
            useNewRequest();
            ends[end](answer(ok("")));
            answer(ok("")).readToEnd();
            perform();
            if (*method == 'P')
                request().setSendDataAsUTF8("text");
            request().setHTTPMethod(kx::String::fromLatin1(method));
            EXPECT_EQ(perform(CRetryPolicy::none()).size(), 1U) << method << end;
        }
    }
}

// libcurl does not notice there in each case that it may begin anew.
TEST_F(PerformWithRetriesTest, openEncryptedConnectionThatTheServerClosesIsNoAttempt)
{
    constexpr size_t bodySize = 5'000'000;
    constexpr size_t taken = 500'000;
    const auto& certificates = support::CTestCertificates::get();
    const auto start = [&](support::CScript& script) -> support::CScript& {
        return script.startTLS(certificates.serverCertificate(), certificates.serverKey()).readHead();
    };
    for (int i = 0; i < 8; ++i) {
        useNewRequest();
        request().setRootCertBundlePath(Path::fromBytes(certificates.caFile().native()));
        request().setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 1);
        start(server().onConnection()).send(ok("")).readHead().readBytes(taken).reset();
        start(server().onConnection()).readBytes(bodySize).send(ok("good"));
        perform({}, "https");
        request().setSendDataAsUTF8(kx::String::fromLatin1(std::string(bodySize, 'x')));
        request().setHTTPMethod("PUT");
        EXPECT_EQ(perform(CRetryPolicy::none(), "https").size(), 1U);
        EXPECT_EQ(body(), "good");
    }
}

class PerformWithinBudgetTest : public CRequestFixture {
protected:
    using Clock = std::chrono::steady_clock;

    static long long microsecondsSince(Clock::time_point start)
    {
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
    }

    /// How far from its budget a transfer that fails ends; the best of some, since the machine may be busy.
    template <typename TPrepare>
    long long distanceFrom(const CRetryPolicy& policy, TPrepare prepare)
    {
        constexpr int tries = 5;
        long long best = std::numeric_limits<long long>::max();
        for (int i = 0; i < tries && best > closeEnough; ++i) {
            prepare();
            const auto start = Clock::now();
            EXPECT_THROW(norla::performWithRetries(request(), policy), norla::CCURLError);
            best = std::min(best, std::abs(policy.budget.getMicroseconds() - microsecondsSince(start)));
        }
        return best;
    }

    static constexpr long long closeEnough = 50'000;
};

TEST_F(PerformWithinBudgetTest, attemptsAndPausesEndWithTheBudget)
{
    const support::CRefusedPort port;
    request().setURL(kx::String::fromUTF8(port.url()));
    const CRetryPolicy policy{.attempts = 1000, .firstPause = ms(20), .growth = 1, .jitter = false, .budget = ms(300)};
    EXPECT_LE(distanceFrom(policy, [] {}), closeEnough);
}

TEST_F(PerformWithinBudgetTest, attemptThatIsNotAnsweredEndsWithTheBudget)
{
    const CRetryPolicy policy{.firstPause = ms(50), .jitter = false, .budget = ms(300)};
    const auto prepare = [this] {
        answer(status(500)).stall();
        server().onConnection().stall();
        request().reset();
        request().setURL(kx::String::fromUTF8(server().url()));
        request().setOptionInt(CURLOPT_FORBID_REUSE, 1);
    };
    EXPECT_LE(distanceFrom(policy, prepare), closeEnough);
}

TEST_F(PerformWithinBudgetTest, attemptThatTakesTooLongIsTheErrorThatIsTold)
{
    for (const CTimeSpan& budget : {ms(100), CTimeSpan::fromMicroseconds(1), ms(-1)}) {
        useNewRequest();
        server().onConnection().stall();
        request().setURL(kx::String::fromUTF8(server().url()));
        const auto error = support::errorOf([&] { norla::performWithRetries(request(), {.budget = budget}); });
        ASSERT_TRUE(error);
        EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::TotalTimeout) << budget.getMicroseconds();
    }
}

TEST_F(PerformWithinBudgetTest, budgetIsNoLimitOfLaterTransfers)
{
    class CFailingSink : public kx::CBase, public virtual norla::IDataSink {
    public:
        void begin() override { throw kx::CError("not today"); }
        int write(const unsigned char*, int size, int, const HeaderMap&) override { return size; }
    };
    request().setReceiveDataSink(kx::newObj<CFailingSink>().get());
    const CRetryPolicy policy{.budget = ms(300)};
    EXPECT_THROW(norla::performWithRetries(request(), policy), kx::CError); // before libcurl is told of anything
    request().setReceiveDataSink(nullptr);
    answer(ok(""));
    support::CCurlCalls calls;
    performPath();
    for (const std::string& option : calls.takeOptions())
        EXPECT_FALSE(option.starts_with("TIMEOUT_MS")) << option;
}

} // namespace
