#include "norla/core/CRetries.h"

#include "kx/streams/CBufferStream.h"
#include "norla/core/CFileSink.h"
#include "norla/core/CTransferInfo.h"
#include "norla/core/IDataSource.h"
#include "norla/http/CFormData.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTemporaryFolder.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

using kx::CTimeSpan;
using norla::CCURLError;
using norla::CRetries;
using norla::CRetryPolicy;

constexpr long long none = -1;

const CCURLError lost(CURLE_RECV_ERROR, "", "", 0, "");
const CCURLError malformed(CURLE_URL_MALFORMAT, "", "", 0, "");

CTimeSpan ms(long long milliseconds)
{
    return CTimeSpan::fromMilliseconds(milliseconds);
}

CTimeSpan seconds(long long count)
{
    return CTimeSpan::fromSeconds(count);
}

/// Gives three bytes, and cannot go back.
class COnceSource : public kx::CBase, public virtual norla::IDataSource {
public:
    int read(unsigned char* buffer, int, const HeaderMap&) override
    {
        if (m_position == 3)
            return 0;
        buffer[0] = 'x';
        ++m_position;
        return 1;
    }

    long long getLength() override { return 3; }

    void seek(long long) override
    {
        if (throws)
            throw std::runtime_error("There is no way back.");
    }

    long long getPosition() override { return m_position; }

    bool throws = true;

private:
    long long m_position = 0;
};

/// The same as a stream.
class COnceStream : public kx::CBase, public virtual kx::IInStream {
public:
    int read(unsigned char* buffer, int size) override { return m_source->read(buffer, size, {}); }
    long long getLength() override { return 3; }
    void seek(long long position) override { m_source->seek(position); }
    long long getPosition() override { return m_source->getPosition(); }

private:
    const kx::P<COnceSource> m_source = kx::newObj<COnceSource>();
};

class CRetriesTest : public CRequestFixture {
protected:
    /// In milliseconds; `none` when there is none.
    static long long pauseOf(const std::optional<CTimeSpan>& pause)
    {
        return pause ? pause->getMicroseconds() / 1000 : none;
    }

    /// The pauses that come when all attempts fail without having done any harm.
    std::vector<long long> pausesOf(CRetryPolicy policy)
    {
        policy.repeatUnsafe = true; // no transfer has begun of which it could be known
        CRetries retries(policy);
        retries.start();
        std::vector<long long> pauses;
        while (const auto pause = retries.afterFailure(request(), lost))
            pauses.push_back(pauseOf(pause));
        return pauses;
    }

    /// Performs and fails; whether there is another attempt.
    bool isRepeated(const CRetryPolicy& policy = {}) { return pauseAfterFailure(policy) != none; }

    long long pauseAfterFailure(CRetryPolicy policy = {})
    {
        policy.jitter = false;
        CRetries retries(policy);
        retries.start();
        const auto error = failureOf();
        EXPECT_TRUE(error);
        return error ? pauseOf(retries.afterFailure(request(), *error)) : none;
    }

    static std::string status(int code, const std::string& headers = "")
    {
        return "HTTP/1.1 " + std::to_string(code) + " Status\r\nContent-Length: 0\r\n" + headers + "\r\n";
    }

    void sendBody(const std::string& text, const char* method = "PUT")
    {
        request().setSendDataAsUTF8(kx::String::fromUTF8(text));
        request().setHTTPMethod(kx::String::fromLatin1(method));
    }
};

TEST_F(CRetriesTest, pausesGrowUpToTheLongest)
{
    EXPECT_EQ(pausesOf({.attempts = 6, .firstPause = ms(100), .longestPause = ms(500), .growth = 2, .jitter = false}),
        (std::vector<long long>{100, 200, 400, 500, 500}));
    EXPECT_EQ(pausesOf({.attempts = 4, .firstPause = ms(100), .growth = 1.5, .jitter = false}),
        (std::vector<long long>{100, 150, 225}));
}

TEST_F(CRetriesTest, pausesNeverShrink)
{
    for (const double growth : {1.0, 0.5, 0.0, -2.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(pausesOf({.attempts = 3, .firstPause = ms(100), .growth = growth, .jitter = false}),
            (std::vector<long long>{100, 100}))
            << growth;
}

TEST_F(CRetriesTest, pauseBeyondAllNumbersIsTheLongest)
{
    const auto pauses = pausesOf({.attempts = 2000, .firstPause = ms(100), .longestPause = ms(300), .jitter = false});
    EXPECT_EQ(pauses.back(), 300);
    EXPECT_EQ(pausesOf({.attempts = 2, .firstPause = CTimeSpan::infinite(), .longestPause = ms(300), .jitter = false}),
        std::vector<long long>{300});
    EXPECT_EQ(pausesOf({.attempts = 2, .firstPause = ms(7), .longestPause = CTimeSpan::infinite(), .jitter = false}),
        std::vector<long long>{7});
}

TEST_F(CRetriesTest, negativePauseIsNone)
{
    EXPECT_EQ(pausesOf({.attempts = 2, .firstPause = ms(-5), .jitter = false}), std::vector<long long>{0});
    EXPECT_EQ(pausesOf({.attempts = 2, .longestPause = ms(-5), .jitter = false}), std::vector<long long>{0});
}

TEST_F(CRetriesTest, sameSeedGivesTheSamePauses)
{
    const auto of = [this](unsigned seed) { return pausesOf({.attempts = 8, .seed = seed}); };
    EXPECT_EQ(of(1), of(1));
    EXPECT_NE(of(1), of(2));
}

TEST_F(CRetriesTest, pausesWithoutASeedDiffer)
{
    EXPECT_NE(pausesOf({.attempts = 8}), pausesOf({.attempts = 8}));
}

TEST_F(CRetriesTest, jitterTakesWhatLiesBetweenZeroAndThePause)
{
    const auto pauses = pausesOf({.attempts = 1001, .firstPause = ms(100), .growth = 1, .seed = 1});
    const auto [least, most] = std::minmax_element(pauses.begin(), pauses.end());
    EXPECT_LT(*least, 5);
    EXPECT_GT(*most, 95);
    EXPECT_LE(*most, 100);
    const auto isSmall = [](long long pause) { return pause < 50; };
    EXPECT_NEAR(static_cast<double>(std::count_if(pauses.begin(), pauses.end(), isSmall)), 500, 100);
}

TEST_F(CRetriesTest, thereAreAsManyAttemptsAsTold)
{
    EXPECT_EQ(pausesOf({}).size(), 2U);
    EXPECT_EQ(pausesOf({.attempts = 7}).size(), 6U);
    for (const int attempts : {1, 0, -1, std::numeric_limits<int>::min()})
        EXPECT_EQ(pausesOf({.attempts = attempts}).size(), 0U) << attempts;
    EXPECT_EQ(pausesOf(CRetryPolicy::none()).size(), 0U);
}

TEST_F(CRetriesTest, errorThatStaysIsTheEnd)
{
    CRetries retries({.repeatUnsafe = true});
    retries.start();
    EXPECT_EQ(retries.afterFailure(request(), malformed), std::nullopt);
}

TEST_F(CRetriesTest, programMayDecideWhichErrorsGoAway)
{
    CRetries retries({.repeatUnsafe = true,
        .isTransient = [](const kx::CError& error) { return error.getCode() == CURLE_URL_MALFORMAT; }});
    retries.start();
    EXPECT_EQ(retries.afterFailure(request(), lost), std::nullopt);
    EXPECT_NE(retries.afterFailure(request(), malformed), std::nullopt);
}

TEST_F(CRetriesTest, pauseThatWouldEndBehindTheBudgetIsTheEnd)
{
    const auto of = [this](const CTimeSpan& budget) {
        return pausesOf({.attempts = 4, .firstPause = seconds(10), .growth = 1, .jitter = false, .budget = budget})
            .size();
    };
    EXPECT_EQ(of(seconds(10)), 0U);
    EXPECT_EQ(of(seconds(11)), 3U); // of which none was waited for
    EXPECT_EQ(of(ms(1)), 0U);
    EXPECT_EQ(of(ms(-1)), 0U);
}

TEST_F(CRetriesTest, budgetOfZeroOrInfinityIsNone)
{
    for (const CTimeSpan& budget : {CTimeSpan(), CTimeSpan::infinite()}) {
        EXPECT_EQ(pausesOf({.budget = budget}).size(), 2U);
        EXPECT_TRUE(CRetries({.budget = budget}).getTimeLeft().isInfinite());
    }
}

TEST_F(CRetriesTest, budgetCountsFromTheStart)
{
    CRetries retries({.budget = seconds(1000)});
    answer(status(500));
    failureOf(); // takes its time
    const CTimeSpan before = retries.getTimeLeft();
    EXPECT_LT(before.getMicroseconds(), seconds(1000).getMicroseconds());
    retries.start();
    EXPECT_GT(retries.getTimeLeft().getMicroseconds(), before.getMicroseconds());
}

TEST_F(CRetriesTest, timeLeftIsNeverNegative)
{
    CRetries retries({.budget = CTimeSpan::fromMicroseconds(1)});
    retries.start();
    answer(status(500));
    failureOf();
    EXPECT_EQ(retries.getTimeLeft(), CTimeSpan());
}

TEST_F(CRetriesTest, recordsEachAttempt)
{
    CRetries retries({.jitter = false});
    retries.start();
    answer(status(503));
    answer(ok("good"));
    const kx::CTime before = kx::CTime::now();
    retries.afterFailure(request(), *failureOf("/first"));
    performPath("/second");
    retries.afterSuccess(request());
    const kx::CTime after = kx::CTime::now();
    const auto& attempts = retries.getAttempts();
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_EQ(attempts[0].error->getProps().get("responseCode"), "503");
    EXPECT_EQ(attempts[0].pause, ms(500));
    EXPECT_EQ(attempts[0].info.url.toUTF8(), server().url("/first"));
    EXPECT_FALSE(attempts[1].error);
    EXPECT_EQ(attempts[1].pause, CTimeSpan());
    EXPECT_EQ(attempts[1].info.url.toUTF8(), server().url("/second"));
    constexpr long long grain = 2000; // in microseconds, of libcurl's clock beside the system's
    EXPECT_GE(attempts[0].began.getMicroseconds(), before.getMicroseconds() - grain);
    EXPECT_GE(attempts[1].began.getMicroseconds(), attempts[0].began.getMicroseconds());
    EXPECT_LE(attempts[1].began.getMicroseconds(), after.getMicroseconds());
}

TEST_F(CRetriesTest, recordsTheLastAttemptToo)
{
    CRetries retries(CRetryPolicy::none());
    retries.start();
    retries.afterFailure(request(), lost);
    ASSERT_EQ(retries.getAttempts().size(), 1U);
    EXPECT_EQ(retries.getAttempts()[0].error->getCode(), CURLE_RECV_ERROR);
    EXPECT_EQ(retries.getAttempts()[0].pause, CTimeSpan());
}

TEST_F(CRetriesTest, forgetsAnEarlierTransfer)
{
    CRetries retries({.attempts = 2, .repeatUnsafe = true});
    retries.start();
    EXPECT_NE(retries.afterFailure(request(), lost), std::nullopt);
    EXPECT_EQ(retries.afterFailure(request(), lost), std::nullopt);
    retries.start();
    EXPECT_TRUE(retries.getAttempts().empty());
    EXPECT_NE(retries.afterFailure(request(), lost), std::nullopt);
}

TEST_F(CRetriesTest, serverSaysHowLongToWaitAtLeast)
{
    for (const int code : {429, 503}) {
        request().reset();
        answer(status(code, "Retry-After: 7\r\n"));
        EXPECT_EQ(pauseAfterFailure(), 7000) << code;
    }
}

TEST_F(CRetriesTest, serverDoesNotShortenAPause)
{
    answer(status(503, "Retry-After: 1\r\n"));
    EXPECT_EQ(pauseAfterFailure({.firstPause = seconds(5)}), 5000);
}

TEST_F(CRetriesTest, serverNamesAMomentByItsOwnClock)
{
    answer(status(503, "Date: Sun, 06 Nov 1994 08:49:30 GMT\r\nRetry-After: Sun, 06 Nov 1994 08:49:37 GMT\r\n"));
    EXPECT_EQ(pauseAfterFailure(), 7000);
}

TEST_F(CRetriesTest, onlyWhoIsBusySaysHowLongToWait)
{
    for (const int code : {408, 425, 500, 502, 504}) {
        request().reset();
        answer(status(code, "Retry-After: 7\r\n"));
        EXPECT_EQ(pauseAfterFailure(), 500) << code;
    }
}

TEST_F(CRetriesTest, serverThatWantsToBeLeftAloneForTooLongIsLeftAlone)
{
    answer(status(503, "Retry-After: 61\r\n"));
    EXPECT_EQ(pauseAfterFailure(), none);
    answer(status(503, "Retry-After: 61\r\n"));
    EXPECT_EQ(pauseAfterFailure({.longestRetryAfter = seconds(61)}), 61'000);
    answer(status(503, "Retry-After: 999999999999\r\n"));
    EXPECT_GT(pauseAfterFailure({.longestRetryAfter = CTimeSpan::infinite()}), 1'000'000'000);
}

TEST_F(CRetriesTest, serverThatWantsToBeLeftAloneBeyondTheBudgetIsLeftAlone)
{
    answer(status(503, "Retry-After: 7\r\n"));
    EXPECT_EQ(pauseAfterFailure({.budget = seconds(6)}), none);
}

TEST_F(CRetriesTest, onlyMethodsThatDoNoHarmTwiceAreRepeated)
{
    const std::map<std::string, bool> methods = {{"GET", true}, {"HEAD", true}, {"PUT", true}, {"DELETE", true},
        {"OPTIONS", true}, {"TRACE", true}, {"POST", false}, {"PATCH", false}, {"LOCK", false}, {"get", false}};
    for (const auto& [method, isHarmless] : methods) {
        request().reset();
        request().setHTTPMethod(kx::String::fromLatin1(method));
        request().setSendDataSize(0);
        answer(status(500));
        EXPECT_EQ(isRepeated(), isHarmless) << method;
        answer(status(500));
        EXPECT_TRUE(isRepeated({.repeatUnsafe = true})) << method;
    }
}

TEST_F(CRetriesTest, postThatIsMadeByItsBodyIsNotRepeated)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "abc");
    answer(status(500));
    EXPECT_FALSE(isRepeated());
}

TEST_F(CRetriesTest, methodThatIsSetAsAnOptionCounts)
{
    sendBody("abc");
    request().setOptionString(CURLOPT_CUSTOMREQUEST, "PATCH");
    answer(status(500));
    EXPECT_FALSE(isRepeated());
}

TEST_F(CRetriesTest, postThatARedirectHasMadeAGetOfIsNotRepeated)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "abc");
    server()
        .onConnection()
        .readHead()
        .readBytes(3)
        .send("HTTP/1.1 303 See Other\r\nLocation: /other\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .send(status(500));
    EXPECT_FALSE(isRepeated());
    EXPECT_NE(received().find("GET /other"), std::string::npos);
}

TEST_F(CRetriesTest, postThatARedirectHasLedToAnotherProtocolIsNotRepeated)
{
    const support::CRefusedPort port;
    request().setOptionString(CURLOPT_POSTFIELDS, "abc");
    request().setOptionString(CURLOPT_REDIR_PROTOCOLS_STR, "ftp");
    server().onConnection().readHead().readBytes(3).send(
        "HTTP/1.1 302 Found\r\nLocation: " + port.url("/a", "ftp") + "\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(isRepeated());
    EXPECT_EQ(request().getTransferInfo().scheme, "ftp");
}

TEST_F(CRetriesTest, postIsNotRepeatedAlsoWhereNothingWasAnswered)
{
    request().setOptionString(CURLOPT_POSTFIELDS, "abc");
    server().onConnection().readHead().readBytes(3).close();
    EXPECT_FALSE(isRepeated());
}

TEST_F(CRetriesTest, bodyIsBackAtItsStart)
{
    const std::string bytes = "abc";
    const auto stream = kx::newObj<kx::CBufferStream>(kx::newObj<kx::TBuffer<unsigned char>>());
    stream->write(reinterpret_cast<const unsigned char*>(bytes.data()), 3);
    request().setSendDataStream(stream.get());
    request().setSendDataSize(3);
    request().setHTTPMethod("PUT");
    server().onConnection().readHead().readBytes(3).send(status(500));
    EXPECT_TRUE(isRepeated());
    EXPECT_EQ(stream->getPosition(), 0);
}

TEST_F(CRetriesTest, bodyThatCannotBeSentAgainIsTheEnd)
{
    for (const bool throws : {true, false}) {
        const auto source = kx::newObj<COnceSource>();
        source->throws = throws;
        request().setSendDataSource(source.get());
        request().setSendDataSize(3);
        request().setHTTPMethod("PUT");
        server().onConnection().readHead().readBytes(3).send(status(500));
        EXPECT_FALSE(isRepeated()) << throws;
    }
}

TEST_F(CRetriesTest, bodyThatCannotBeSentAgainDoesNoHarmBeforeItIsSent)
{
    const auto source = kx::newObj<COnceSource>();
    request().setSendDataSource(source.get());
    request().setSendDataSize(3);
    request().setHTTPMethod("PUT");
    const support::CRefusedPort port;
    request().setURL(kx::String::fromUTF8(port.url()));
    CRetries retries({});
    retries.start();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_NE(retries.afterFailure(request(), *error), std::nullopt);
}

TEST_F(CRetriesTest, formIsRepeatedAsFarAsItsPartsCanBe)
{
    const auto form = kx::newObj<norla::CFormData>();
    form->addText("a", "text");
    request().setFormData(form.get());
    answer(status(500));
    EXPECT_TRUE(isRepeated({.repeatUnsafe = true}));
    form->addStream("b", kx::newObj<COnceStream>().get());
    form->addText("c", "text");
    server().onConnection().readUntil("xxx").readUntil("--\r\n").send(status(500));
    EXPECT_FALSE(isRepeated({.repeatUnsafe = true}));
}

TEST_F(CRetriesTest, bodyOfLibcurlsOwnIsNotRepeated)
{
    const std::unique_ptr<curl_mime, decltype(&curl_mime_free)> mime(
        curl_mime_init(request().getEasyHandle()), &curl_mime_free);
    request().setOptionPtr(CURLOPT_MIMEPOST, mime.get());
    answer(status(500));
    EXPECT_FALSE(isRepeated({.repeatUnsafe = true}));
    request().setOptionPtr(CURLOPT_MIMEPOST, nullptr);
}

TEST_F(CRetriesTest, answerThatHasComeInPartIsRepeatedOnlyWhereItsSinkBeginsAnew)
{
    const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf";
    server().onConnection().readHead().send(half).close();
    EXPECT_TRUE(isRepeated()); // the default receive buffer

    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    request().setReceiveDataStream(kx::newObj<kx::CBufferStream>(buffer).get());
    server().onConnection().readHead().send(half).close();
    EXPECT_FALSE(isRepeated());
    answer(status(500));
    EXPECT_TRUE(isRepeated()); // nothing has come of it

    const support::CTemporaryFolder folder;
    const auto file = kx::newObj<norla::CFileSink>(
        request(), norla::CNetRequest::Path::fromBytes((folder.path() / "file").native()));
    request().setReceiveDataSink(file.get());
    server().onConnection().readHead().send(half).close();
    EXPECT_TRUE(isRepeated());
    request().setReceiveDataSink(nullptr);
    server().onConnection().readHead().send(half).close();
    EXPECT_TRUE(isRepeated());
}

TEST_F(CRetriesTest, whatACallbackThrowsIsTheEndWhateverItIs)
{
    class CLosingSink : public kx::CBase, public virtual norla::IDataSink {
    public:
        int write(const unsigned char*, int, int, const HeaderMap&) override { throw CCURLError(lost); }
        bool canBeginAgain() const override { return true; }
    };
    request().setReceiveDataSink(kx::newObj<CLosingSink>().get());
    answer(ok("body"));
    EXPECT_FALSE(isRepeated());
    answer(ok("body"));
    EXPECT_TRUE(isRepeated({.isTransient = [](const kx::CError&) { return true; }}));
}

TEST_F(CRetriesTest, fileTransferWithCommandsIsNotRepeatedUntilTheyAreGone)
{
    const support::CRefusedPort port;
    const auto isFTPRepeated = [&] {
        request().setURL(kx::String::fromUTF8(port.url("/a", "ftp")));
        CRetries retries({});
        retries.start();
        const auto error = failure();
        return error && retries.afterFailure(request(), *error);
    };
    const auto commands = kx::newObj<norla::CNetStringList>();
    request().setFTPCustomPreCommands(commands.get());
    EXPECT_TRUE(isFTPRepeated()); // there are none in the list
    commands->add("DELE a");
    request().setFTPCustomPreCommands(commands.get());
    EXPECT_FALSE(isFTPRepeated());
    request().setFTPCustomPreCommands(nullptr);
    request().setFTPCustomPostCommands(commands.get());
    EXPECT_FALSE(isFTPRepeated());
    request().setFTPCustomPostCommands(nullptr);
    request().setOptionPtr(CURLOPT_QUOTE, commands->getCurlList());
    EXPECT_FALSE(isFTPRepeated());
    request().reset();
    request().setUpload(true);
    EXPECT_TRUE(isFTPRepeated());
    request().setOptionInt(CURLOPT_APPEND, 1);
    EXPECT_FALSE(isFTPRepeated());
    request().setOptionInt(CURLOPT_APPEND, 0);
    request().setOptionInt64(CURLOPT_RESUME_FROM_LARGE, -1);
    EXPECT_FALSE(isFTPRepeated());
}

/// A transfer over an open connection of which nobody has answered anything; libcurl itself has not begun anew.
class CSwallowedTest : public CRetriesTest {
protected:
    void swallow(const std::string& answered = "")
    {
        answer(ok("")).readHead().send(answered).stall();
        performPath();
        request().setOptionInt(CURLOPT_TIMEOUT_MS, 50);
        EXPECT_TRUE(failureOf());
    }

    /// Whether the next attempt counts as none.
    bool isReplaced(CRetries& retries, const kx::CError& error)
    {
        const size_t attempts = retries.getAttempts().size();
        const auto pause = retries.afterFailure(request(), error);
        return pause == CTimeSpan() && retries.getAttempts().size() == attempts;
    }

    bool isReplaced(const kx::CError& error)
    {
        CRetries retries(CRetryPolicy::none());
        retries.start();
        return isReplaced(retries, error);
    }
};

TEST_F(CSwallowedTest, isNoAttempt)
{
    swallow();
    for (const CURLcode code : {CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR, CURLE_HTTP2, CURLE_PARTIAL_FILE})
        EXPECT_TRUE(isReplaced(CCURLError(code, "", "", 0, ""))) << code;
    for (const CURLcode code : {CURLE_OPERATION_TIMEDOUT, CURLE_READ_ERROR, CURLE_HTTP2_STREAM})
        EXPECT_FALSE(isReplaced(CCURLError(code, "", "", 0, ""))) << code;
    EXPECT_FALSE(isReplaced(kx::CError("m", "other", CURLE_RECV_ERROR)));
}

TEST_F(CSwallowedTest, isReplacedOncePerAttempt)
{
    swallow();
    CRetries retries({.attempts = 2});
    retries.start();
    EXPECT_TRUE(isReplaced(retries, lost));
    EXPECT_FALSE(isReplaced(retries, lost));
    EXPECT_TRUE(isReplaced(retries, lost));
    EXPECT_EQ(retries.afterFailure(request(), lost), std::nullopt);
    EXPECT_EQ(retries.getAttempts().size(), 2U);
}

TEST_F(CSwallowedTest, isReplacedAnewInAnotherTransfer)
{
    swallow();
    CRetries retries({});
    retries.start();
    EXPECT_TRUE(isReplaced(retries, lost));
    retries.start();
    EXPECT_TRUE(isReplaced(retries, lost));
    retries.afterSuccess(request());
    EXPECT_TRUE(isReplaced(retries, lost));
}

TEST_F(CSwallowedTest, isAnAttemptOnceAnythingWasAnswered)
{
    swallow("HTTP/1.1 100 Continue\r\n\r\n");
    EXPECT_FALSE(isReplaced(lost));
}

TEST_F(CSwallowedTest, isAnAttemptOverANewConnection)
{
    server().onConnection().readHead().stall();
    request().setOptionInt(CURLOPT_TIMEOUT_MS, 50);
    EXPECT_TRUE(failureOf());
    EXPECT_FALSE(isReplaced(lost));
}

TEST_F(CRetriesTest, pauseThatIsNoneDoesNotGrow)
{
    const CRetryPolicy policy{.attempts = 4, .firstPause = CTimeSpan(), .growth = 1e300, .jitter = false};
    EXPECT_EQ(pausesOf(policy), (std::vector<long long>{0, 0, 0}));
}

TEST_F(CSwallowedTest, isAnAttemptWhereItMayHaveDoneItsWork)
{
    request().setOptionString(CURLOPT_CUSTOMREQUEST, "POST");
    swallow();
    EXPECT_FALSE(isReplaced(lost));
}

TEST_F(CSwallowedTest, isAnAttemptBehindTheBudget)
{
    swallow();
    CRetries retries({.budget = CTimeSpan::fromMicroseconds(1)});
    retries.start();
    while (retries.getTimeLeft() != CTimeSpan())
        continue;
    EXPECT_FALSE(isReplaced(retries, lost));
}

TEST_F(CRetriesTest, requestThatWasNeverSentIsNotRepeated)
{
    CRetries retries({});
    retries.start();
    EXPECT_EQ(retries.afterFailure(request(), lost), std::nullopt);
}

} // namespace
