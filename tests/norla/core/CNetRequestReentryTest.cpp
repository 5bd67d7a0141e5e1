// What sinks, sources and log handlers do to the request that calls them.
#include "kx/log/log.h"
#include "norla/core/CNetRequest.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/norla/core/CThrowingListener.h"

#include <functional>

namespace {

using HeaderMap = norla::CNetRequest::HeaderMap;

/// Runs the test's own code for each block, and tells when it is gone.
class CActionSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CActionSink(std::function<void()> action, bool& isAlive)
        : m_action(std::move(action))
        , m_isAlive(isAlive)
    {
        m_isAlive = true;
    }
    ~CActionSink() override { m_isAlive = false; }

    int write(const unsigned char*, int size, int, const HeaderMap&) override
    {
        m_action();
        m_wasAliveAfterwards = m_isAlive;
        return size;
    }

    static inline bool m_wasAliveAfterwards = false;

private:
    const std::function<void()> m_action;
    bool& m_isAlive;
};

/// Gives one byte; runs the test's own code before it does anything.
class CActionSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    CActionSource(std::function<void()> action, bool& isAlive)
        : m_action(std::move(action))
        , m_isAlive(isAlive)
    {
        m_isAlive = true;
    }
    ~CActionSource() override { m_isAlive = false; }

    int read(unsigned char* buffer, int, const HeaderMap&) override
    {
        act();
        *buffer = 'x';
        return m_position++ == 0 ? 1 : 0;
    }
    long long getLength() override { return -1; }
    void seek(long long position) override
    {
        act();
        m_position = position;
    }
    long long getPosition() override { return m_position; }

    static inline bool m_wasAliveAfterwards = false;

private:
    void act()
    {
        m_action();
        m_wasAliveAfterwards = m_isAlive;
    }

    const std::function<void()> m_action;
    bool& m_isAlive;
    long long m_position = 0;
};

class CNetRequestReentryTest : public CRequestFixture {
protected:
    void actInSink(std::function<void()> action)
    {
        request().setReceiveDataSink(kx::newObj<CActionSink>(std::move(action), m_isAlive).get());
    }

    void actInSource(std::function<void()> action)
    {
        request().setSendDataSource(kx::newObj<CActionSource>(std::move(action), m_isAlive).get());
    }

    /// Takes a body in chunks before anything else.
    support::CScript& onUpload()
    {
        return server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readUntil("\r\n0\r\n\r\n");
    }

    bool m_isAlive = false;
};

TEST_F(CNetRequestReentryTest, sinkThatReplacesItselfLivesUntilItReturns)
{
    answer(ok("hello"));
    actInSink([this] { request().setDefaultReceiveDataStream(); });
    performPath();
    EXPECT_TRUE(CActionSink::m_wasAliveAfterwards);
    EXPECT_FALSE(m_isAlive);
}

TEST_F(CNetRequestReentryTest, sourceThatReplacesItselfLivesUntilItReturns)
{
    onUpload().send(ok("fine"));
    actInSource([this] { request().setSendDataSource(nullptr); });
    request().setHTTPMethod("PUT");
    performPath();
    EXPECT_TRUE(CActionSource::m_wasAliveAfterwards);
    EXPECT_FALSE(m_isAlive);
}

TEST_F(CNetRequestReentryTest, sourceThatReplacesItselfAtTheStartLivesUntilItReturns)
{
    onUpload().send(ok("fine")).readHead().send(ok("fine"));
    int calls = 0;
    actInSource([this, &calls] {
        if (++calls == 3) // behind two reads: the rewind of the next transfer
            request().setSendDataSource(nullptr);
    });
    request().setHTTPMethod("PUT");
    performPath();
    failureOf();
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(CActionSource::m_wasAliveAfterwards);
}

// libcurl sends the body again behind a redirect of this status.
TEST_F(CNetRequestReentryTest, sourceThatReplacesItselfInASeekLivesUntilItReturns)
{
    onUpload()
        .send("HTTP/1.1 307 Temporary Redirect\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .send(ok("fine"));
    int calls = 0;
    actInSource([this, &calls] {
        if (++calls == 3) // behind two reads
            request().setSendDataSource(nullptr);
    });
    request().setHTTPMethod("PUT");
    failureOf();
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(CActionSource::m_wasAliveAfterwards);
}

struct CReentry {
    const char* name;
    void (*call)(norla::CNetRequest&);
};

void PrintTo(const CReentry& reentry, std::ostream* out)
{
    *out << reentry.name;
}

class ReentryTest : public CNetRequestReentryTest, public testing::WithParamInterface<CReentry> {};

std::string nameOfReentry(const testing::TestParamInfo<CReentry>& reentry)
{
    return reentry.param.name;
}

TEST_P(ReentryTest, isRefusedInASinkAndEndsTheTransfer)
{
    answer(ok("hello"));
    actInSink([this] { GetParam().call(request()); });
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        kx::String::fromLatin1(std::string("CNetRequest::") + GetParam().name)
            + " was called while the request's transfer is running.");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
    EXPECT_EQ(header("content-length"), "5");
    expectGoodTransfer();
}

TEST_P(ReentryTest, isRefusedInASource)
{
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readToEnd();
    actInSource([this] { GetParam().call(request()); });
    request().setHTTPMethod("PUT");
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_NE(error->getMessage().find("while the request's transfer is running"), kx::String::npos) << error->what();
    expectGoodTransfer();
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, ReentryTest,
    testing::Values(CReentry{"perform", [](auto& r) { r.perform(); }}, CReentry{"reset", [](auto& r) { r.reset(); }},
        CReentry{"resetForPerform", [](auto& r) { r.resetForPerform(); }}),
    nameOfReentry);

/// Makes the log throw as long as it lives.
class CThrowingLog {
public:
    CThrowingLog()
    {
        kx::setLogHandler([](const kx::CLogEntry&) { throw kx::CError("the log is full"); });
    }
    CThrowingLog(const CThrowingLog&) = delete;
    CThrowingLog& operator=(const CThrowingLog&) = delete;
    ~CThrowingLog() { kx::setLogHandler({}); }
};

TEST_F(CNetRequestReentryTest, whatTheLogThrowsForABadHeaderComesOutOfTheTransfer)
{
    answer("HTTP/1.1 200 OK\r\nX: \xff\r\nContent-Length: 5\r\n\r\nhello");
    const CThrowingLog log;
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "the log is full");
    EXPECT_EQ(body(), "hello"); // the line itself ends nothing
}

TEST_F(CNetRequestReentryTest, whatTheLogThrowsForAListenerIsDropped)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    request().setDoneListener(kx::newObj<CThrowingListener>().get());
    const CThrowingLog log;
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
}

TEST_F(CNetRequestReentryTest, tellsTheAddressBehindRedirects)
{
    answer("HTTP/1.1 302 Found\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n").readHead().send(ok("x"));
    performPath("/here");
    EXPECT_EQ(request().getInfoString(CURLINFO_EFFECTIVE_URL), kx::String::fromUTF8(server().url("/there")));
    EXPECT_EQ(request().getInfoString(CURLINFO_REDIRECT_URL), "");
}

TEST_F(CNetRequestReentryTest, informationThatIsNoTextIsRefused)
{
    for (const CURLINFO info : {CURLINFO_RESPONSE_CODE, CURLINFO_PRIVATE, CURLINFO_SPEED_DOWNLOAD_T}) {
        try {
            request().getInfoString(info);
            ADD_FAILURE() << info;
        } catch (const norla::CCURLError& error) {
            EXPECT_EQ(error.getCode(), CURLE_UNKNOWN_OPTION);
        }
    }
}

} // namespace
