// Attempts of a pool's transfers: until when they go on, and which of them do not count.
#include "norla/core/CNetHeaders.h"
#include "norla/core/errorKind.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/distinctBytes.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using norla::CTransfer;
using norla::TransferState;

constexpr auto ms = &kx::CTimeSpan::fromMilliseconds;

std::string status(int code, const std::string& headers = "")
{
    return "HTTP/1.1 " + std::to_string(code) + " Status\r\nContent-Length: 0\r\n" + headers + "\r\n";
}

/// Transfers that are tried again and again until their time is over.
class PoolBudgetTest : public CPoolFixture {
protected:
    using Clock = std::chrono::steady_clock;

    static CTransfer::Options untilTheEndOf(const kx::CTimeSpan& deadline, const kx::CTimeSpan& budget)
    {
        CTransfer::Options options;
        options.deadline = deadline;
        options.retries = {.attempts = 1000, .firstPause = ms(20), .growth = 1, .jitter = false, .budget = budget};
        return options;
    }

    /// How far from 300 milliseconds the transfer fails; the best of some, since the machine may be busy.
    void expectFailureOnTime(const std::function<Request()>& makeRequest, const CTransfer::Options& options)
    {
        constexpr int tries = 5;
        constexpr auto time = std::chrono::milliseconds(300);
        constexpr Clock::duration closeEnough = std::chrono::milliseconds(50);
        Clock::duration best = Clock::duration::max();
        for (int count = 0; count < tries && best > closeEnough && !HasFailure(); ++count) {
            const Request request = makeRequest();
            const auto start = Clock::now();
            const Transfer transfer = pool().start(request.get(), options);
            EXPECT_TRUE(transfer->wait(longest));
            best = std::min(best, std::chrono::abs(Clock::now() - start - time));
            EXPECT_EQ(transfer->getState(), TransferState::Failed);
        }
        EXPECT_LE(best, closeEnough);
    }

    const support::CRefusedPort m_refused;
};

TEST_F(PoolBudgetTest, attemptsAndPausesEndWithTheDeadlineOfAll)
{
    expectFailureOnTime([this] { return requestTo(m_refused.url()); }, untilTheEndOf(ms(300), {}));
}

TEST_F(PoolBudgetTest, attemptsAndPausesEndWithTheBudget)
{
    expectFailureOnTime([this] { return requestTo(m_refused.url()); }, untilTheEndOf({}, ms(300)));
}

TEST_F(PoolBudgetTest, theEarlierOfBothCounts)
{
    expectFailureOnTime([this] { return requestTo(m_refused.url()); }, untilTheEndOf(ms(300), ms(3'000)));
    expectFailureOnTime([this] { return requestTo(m_refused.url()); }, untilTheEndOf(ms(3'000), ms(300)));
}

TEST_F(PoolBudgetTest, anAttemptThatIsNotAnsweredEndsWithTheDeadlineOfAll)
{
    const auto makeRequest = [this] {
        server().onConnection().readHead().send(status(503, "Connection: close\r\n"));
        return stalledRequest();
    };
    expectFailureOnTime(makeRequest, untilTheEndOf(ms(300), {}));
}

TEST_F(PoolBudgetTest, saysThatTheTimeForAllAttemptsIsOver)
{
    server().onConnection().readHead().send(status(503, "Connection: close\r\n"));
    const auto transfer = pool().start(stalledRequest().get(), untilTheEndOf(ms(300), {}));
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer),
        "Timeout was reached: The transfer with 127.0.0.1:" + std::to_string(server().getPort())
            + " was not done within 300 milliseconds, the time for all its attempts.");
    EXPECT_EQ(norla::getErrorKind(*transfer->getError()), norla::ErrorKind::TotalTimeout);
    EXPECT_EQ(transfer->getAttempts().size(), 2U);
}

// In its pause another one takes the room.
TEST_F(PoolBudgetTest, aTransferThatWaitsForRoomAgainEndsAsItsLastAttemptHas)
{
    replacePool({.atOnce = 1});
    std::promise<void> gate;
    server().onConnection().readHead().waitFor(gate.get_future().share()).send(status(503, "Connection: close\r\n"));
    const auto transfer = pool().start(newRequest().get(), untilTheEndOf(ms(2'000), {}));
    const auto another = pool().start(stalledRequest().get());
    gate.set_value();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
    EXPECT_EQ(failureOf(transfer), "HTTP response code said error (response code: http 503)");
    EXPECT_FALSE(another->isDone());
}

TEST_F(PoolBudgetTest, eachAttemptHasItsOwnDeadline)
{
    stalledRequest();
    server().onConnection().readHead().send(ok("good"));
    const auto request = newRequest();
    CTransfer::Options options;
    options.attemptDeadline = ms(100);
    options.retries = {.attempts = 2, .firstPause = ms(100), .jitter = false};
    const auto transfer = pool().start(request.get(), options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(request), "good");
}

class PoolRetryTest : public CPoolFixture {
protected:
    /// The pause behind an answer with these headers, in milliseconds.
    long long pauseAfter(const std::string& headers)
    {
        answer(status(503, headers + "Connection: close\r\n"));
        answer(ok("good"));
        CTransfer::Options options;
        options.retries = {.attempts = 2, .firstPause = ms(1)};
        const auto transfer = pool().start(newRequest().get(), options);
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
        const auto attempts = transfer->getAttempts();
        return attempts.size() == 2 ? attempts[0].pause.getMicroseconds() / 1000 : -1;
    }
};

TEST_F(PoolRetryTest, aServerIsLeftAloneForAsManySecondsAsItSays)
{
    EXPECT_EQ(pauseAfter("Retry-After: 1\r\n"), 1'000);
}

TEST_F(PoolRetryTest, aServerIsLeftAloneUntilTheMomentThatItSays)
{
    EXPECT_EQ(
        pauseAfter("Date: Sun, 06 Nov 1994 08:49:37 GMT\r\nRetry-After: Sun, 06 Nov 1994 08:49:38 GMT\r\n"), 1'000);
}

TEST_F(PoolRetryTest, triesAServerUntilItsFailuresAreOver)
{
    constexpr int failures = 5;
    for (int count = 0; count < failures; ++count)
        answer(status(503, "Connection: close\r\n"));
    answer(ok("good"));
    CTransfer::Options options;
    options.retries = {.attempts = failures + 1, .firstPause = ms(1)};
    const auto request = newRequest();
    const auto transfer = pool().start(request.get(), options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(request), "good");
    EXPECT_EQ(transfer->getAttempts().size(), failures + 1U);
}

/// A transfer behind whose first attempt there is no other one.
class PoolLastAttemptTest : public CPoolFixture {
protected:
    Transfer start(CTransfer::Options options)
    {
        answer(status(503));
        return pool().start(newRequest().get(), options);
    }

    static CTransfer::Options withAPauseOf(const kx::CTimeSpan& pause)
    {
        CTransfer::Options options;
        options.retries = {.attempts = 2, .firstPause = pause, .jitter = false};
        return options;
    }

    /// How long the pauses behind the attempts are, in milliseconds.
    static std::vector<long long> pausesOf(const Transfer& transfer)
    {
        std::vector<long long> pauses;
        for (const norla::CAttempt& attempt : transfer->getAttempts())
            pauses.push_back(attempt.pause.getMicroseconds() / 1000);
        return pauses;
    }
};

TEST_F(PoolLastAttemptTest, hasNoPauseBehindItWhereTheDeadlineComesBefore)
{
    CTransfer::Options options = withAPauseOf(ms(30'000));
    options.deadline = ms(10'000);
    const auto transfer = start(options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(pausesOf(transfer), std::vector<long long>{0});
}

TEST_F(PoolLastAttemptTest, hasNoPauseBehindItWhereACancelEndsThat)
{
    const auto transfer = start(withAPauseOf(ms(30'000)));
    EXPECT_TRUE(waitUntil([&] { return transfer->getState() == TransferState::Pausing; }));
    EXPECT_EQ(pausesOf(transfer), std::vector<long long>{30'000});
    transfer->cancel();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(pausesOf(transfer), std::vector<long long>{0});
}

TEST_F(PoolLastAttemptTest, isThereWhereThePolicyThrows)
{
    CTransfer::Options options = withAPauseOf(ms(1));
    options.retries.isTransient = [](const kx::CError&) -> bool { throw kx::CError("no idea"); };
    const auto transfer = start(options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "HTTP response code said error (response code: http 503)");
    EXPECT_EQ(pausesOf(transfer), std::vector<long long>{0});
}

/// A transfer whose first attempt the server refuses for a moment.
class PoolRepetitionTest : public CPoolFixture {
protected:
    /// @return how many attempts it took
    size_t attemptsOf(const Request& request)
    {
        CTransfer::Options options;
        options.retries = {.attempts = 3, .firstPause = ms(1)};
        m_transfer = pool().start(request.get(), options);
        EXPECT_TRUE(m_transfer->wait(longest));
        return m_transfer->getAttempts().size();
    }

    Request putRequest()
    {
        auto request = newRequest();
        request->setHTTPMethod("PUT");
        const auto headers = kx::newObj<norla::CNetHeaders>();
        headers->addEmpty("Expect");
        request->setCustomHTTPHeaders(headers.get());
        return request;
    }

    Transfer m_transfer;
};

TEST_F(PoolRepetitionTest, sendsTheSameBodyAgain)
{
    const std::string body = support::distinctBytes(300'000);
    const auto takeBody = [&](const std::string& answer) {
        server().onConnection().readHead().readBytes(body.size()).send(answer).readToEnd();
    };
    takeBody(status(503, "Connection: close\r\n"));
    takeBody(ok("good"));
    norla::CNetRequest::Buffer buffer;
    buffer.append(reinterpret_cast<const unsigned char*>(body.data()), body.size());
    const auto request = putRequest();
    request->setSendDataBuffer(&buffer);
    EXPECT_EQ(attemptsOf(request), 2U);
    EXPECT_EQ(bodyOf(request), "good");
    const std::string first = server().received(0);
    EXPECT_EQ(first.size(), first.find("\r\n\r\n") + 4 + body.size());
    EXPECT_TRUE(first.ends_with(body));
    EXPECT_EQ(server().received(1), first);
}

/// Some bytes that nobody reads twice.
class CStreamWithoutWayBack : public kx::CBase, public virtual kx::IInStream {
public:
    int read(unsigned char* data, int size) override
    {
        const int count = std::min(size, std::exchange(m_left, 0));
        std::fill_n(data, count, static_cast<unsigned char>('x'));
        return count;
    }
    long long getLength() override { return -1; }
    void seek(long long) override { throw kx::CError("There is no way back."); }
    long long getPosition() override { return 4 - m_left; }

private:
    int m_left = 4;
};

TEST_F(PoolRepetitionTest, isNoneForASourceThatCannotGoBack)
{
    server().onConnection().readHead().readBytes(4).send(status(503, "Connection: close\r\n"));
    const auto request = putRequest();
    request->setSendDataStream(kx::newObj<CStreamWithoutWayBack>().get());
    request->setSendDataSize(4);
    EXPECT_EQ(attemptsOf(request), 1U);
    EXPECT_EQ(failureOf(m_transfer), "HTTP response code said error (response code: http 503)");
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(PoolRepetitionTest, asksAnFTPServerAgain)
{
    server().onConnection().send("421 too many\r\n");
    server()
        .onConnection()
        .send("220 hello\r\n")
        .readUntil("\r\n")
        .send("230 in\r\n")
        .readUntil("PWD\r\n")
        .send("257 \"/\"\r\n")
        .readToEnd();
    const auto request = requestTo(server().url("/", "ftp"));
    request->setOptionInt(CURLOPT_NOBODY, 1);
    EXPECT_EQ(attemptsOf(request), 2U);
    EXPECT_EQ(failureOf(m_transfer), "");
}

TEST_F(PoolRepetitionTest, sendsAMailAgain)
{
    const std::string mail = "Subject: a\r\n\r\nb\r\n";
    const auto greet = [this]() -> support::CScript& {
        support::CScript& script = server().onConnection().send("220 hello\r\n").readUntil("EHLO ").readUntil("\r\n");
        return script.send("250 hello\r\n").readUntil("MAIL FROM:<me@example.org>\r\n").send("250 yes\r\n");
    };
    greet()
        .readUntil("RCPT TO:<them@example.org>\r\n")
        .send("451 not yet\r\n")
        .readUntil("QUIT\r\n")
        .send("221 bye\r\n");
    greet()
        .readUntil("RCPT TO:<them@example.org>\r\n")
        .send("250 yes\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n")
        .readToEnd();
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> recipients(
        curl_slist_append(nullptr, "<them@example.org>"), &curl_slist_free_all);
    const auto request = requestTo(server().url("/", "smtp"));
    request->setOptionPtr(CURLOPT_MAIL_RCPT, recipients.get());
    request->setOptionString(CURLOPT_MAIL_FROM, "<me@example.org>");
    request->setUpload(true);
    request->setSendDataAsUTF8(kx::String::fromLatin1(mail));
    EXPECT_EQ(attemptsOf(request), 2U);
    EXPECT_EQ(failureOf(m_transfer), "");
    destroyPool(); // says goodbye
    server().join();
    EXPECT_NE(server().received(1).find("DATA\r\n" + mail + ".\r\n"), std::string::npos) << server().received(1);
    request->setOptionPtr(CURLOPT_MAIL_RCPT, nullptr);
}

} // namespace
