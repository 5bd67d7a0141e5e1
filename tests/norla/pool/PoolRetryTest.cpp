// Attempts of a pool's transfers: until when they go on, and which of them do not count.
#include "norla/core/errorKind.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTestCertificates.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <limits>
#include <string>
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

/// An open connection that the server closes in the moment in which it is used again.
class PoolSwallowedTest : public CPoolFixture {
protected:
    using Script = std::function<void(support::CScript&)>;

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
    const std::vector<Script> ends = {[](support::CScript& script) { script.close(); },
        [](support::CScript& script) { script.readHead().close(); },
        [](support::CScript& script) { script.readHead().reset(); },
        [](support::CScript& script) { script.readBytes(1).closeHard(); }};
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
    const auto start = [&](support::CScript& script) -> support::CScript& {
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

} // namespace
