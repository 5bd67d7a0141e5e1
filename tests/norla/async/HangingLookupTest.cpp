// A name lookup that does not come back: what waits for it, and what does not.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CDeadlines.h"
#include "norla/core/CSafeDefaults.h"
#include "tests/norla/async/CAsyncFixture.h"
#include "tests/norla/async/CLookupGate.h"
#include "tests/support/errorOf.h"

namespace {

using norla::CAsyncNetRequestManager;
using norla::CAsyncNetRequestThread;
using std::chrono::steady_clock;

constexpr auto limit = std::chrono::milliseconds(200);

class HangingLookupTest : public CAsyncFixture {
protected:
    HangingLookupTest() { CLookupGate::get().shut(); }

    // What was to be shown is that nobody had to wait for this.
    ~HangingLookupTest() override { CLookupGate::get().open(); }

    static Request hangingRequest() { return requestTo("http://hanging.test/"); }

    /// Runs the action while the lookup hangs, which must not take longer than the limit.
    template <typename TAction>
    static void expectQuick(TAction action)
    {
        const auto start = steady_clock::now();
        action();
        const auto time = steady_clock::now() - start;
        EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
        EXPECT_LE(std::chrono::duration_cast<std::chrono::milliseconds>(time).count(), limit.count());
    }

    Request addHanging()
    {
        auto request = hangingRequest();
        m_thread->addRequest(request.get());
        EXPECT_TRUE(CLookupGate::get().waitForLookup());
        return request;
    }

    kx::P<CAsyncNetRequestThread> m_thread = kx::newObj<CAsyncNetRequestThread>();
};

TEST_F(HangingLookupTest, connectTimeoutOfPerformCounts)
{
    const auto request = hangingRequest();
    request->setConnectTimeout(kx::CTimeSpan::fromMilliseconds(100));
    try {
        request->perform();
        ADD_FAILURE();
    } catch (const norla::CCURLError& error) {
        EXPECT_EQ(error.getCode(), CURLE_OPERATION_TIMEDOUT) << error.what();
    }
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
}

TEST_F(HangingLookupTest, connectTimeoutCountsWithTheSafeDefaultsToo)
{
    m_thread->start();
    const auto request = hangingRequest();
    request->setSafeDefaults();
    request->setConnectTimeout(kx::CTimeSpan::fromMilliseconds(100));
    const auto error = support::errorOf([&] { request->perform(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT) << error->what();
    m_thread->addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
}

TEST_F(HangingLookupTest, deadlineNamesTheLookup)
{
    const auto request = hangingRequest();
    request->setDeadlines({.connect = kx::CTimeSpan::fromMilliseconds(100)});
    EXPECT_EQ(support::messageOf([&] { request->perform(); }),
        "Timeout was reached: The name lookup for hanging.test was not done within 0.1 seconds.");
    request->setDeadlines({.total = kx::CTimeSpan::fromMilliseconds(100)});
    EXPECT_EQ(support::messageOf([&] { request->perform(); }),
        "Timeout was reached: The transfer with hanging.test was not done within 0.1 seconds: the name was still being "
        "looked up.");
}

TEST_F(HangingLookupTest, deadlineInTheBackgroundNamesTheLookup)
{
    m_thread->start();
    const auto request = hangingRequest();
    request->setDeadlines({.connect = kx::CTimeSpan::fromMilliseconds(100)});
    m_thread->addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_EQ(support::messageOf([&] { request->checkAsyncResult(); }),
        "Timeout was reached: The name lookup for hanging.test was not done within 0.1 seconds.");
}

TEST_F(HangingLookupTest, deadlineNamesALookupBehindARedirect)
{
    answer("HTTP/1.1 302 Found\r\nLocation: http://hanging.test/\r\nContent-Length: 0\r\n\r\n");
    const auto request = newRequest();
    request->setDeadlines({.connect = kx::CTimeSpan::fromMilliseconds(100)});
    EXPECT_EQ(support::messageOf([&] { request->perform(); }),
        "Timeout was reached: The name lookup for hanging.test was not done within 0.1 seconds. (response code: http "
        "302)");
}

TEST_F(HangingLookupTest, fullTimeoutOfPerformCountsAlsoAfterAReset)
{
    const auto request = hangingRequest();
    request->reset();
    request->setURL("http://hanging.test/");
    request->setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(100));
    EXPECT_THROW(request->perform(), norla::CCURLError);
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
}

TEST_F(HangingLookupTest, timeoutCountsInTheNextTransferAfterAReset)
{
    answer(ok("hello"));
    const auto request = newRequest();
    request->perform();
    request->reset();
    request->setURL("http://hanging.test/");
    request->setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(100));
    EXPECT_THROW(request->perform(), norla::CCURLError);
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
}

TEST_F(HangingLookupTest, requestGoesAtOnceAfterATimeout)
{
    auto request = hangingRequest();
    request->setConnectTimeout(kx::CTimeSpan::fromMilliseconds(100));
    EXPECT_THROW(request->perform(), norla::CCURLError);
    expectQuick([&request] { request = nullptr; });
}

TEST_F(HangingLookupTest, removalDoesNotWait)
{
    m_thread->start();
    const auto request = addHanging();
    expectQuick([&] { EXPECT_TRUE(m_thread->removeRequest(request.get())); });
}

TEST_F(HangingLookupTest, connectTimeoutInTheBackgroundCounts)
{
    m_thread->start();
    const auto request = hangingRequest();
    request->setConnectTimeout(kx::CTimeSpan::fromMilliseconds(100));
    m_thread->addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "it has waited for the lookup";
    EXPECT_NE(resultOf(request).find("imeout was reached"), std::string::npos) << resultOf(request);
}

TEST_F(HangingLookupTest, othersGoOnWhileOneIsRemoved)
{
    m_thread->start();
    const auto hanging = addHanging();
    m_thread->removeRequest(hanging.get());
    answer(ok("hello"));
    const auto other = newRequest();
    m_thread->addRequest(other.get());
    EXPECT_TRUE(other->waitAsyncDone(20'000));
    EXPECT_EQ(bodyOf(other), "hello");
    EXPECT_TRUE(CLookupGate::get().isHolding()) << "they have waited for the lookup";
}

TEST_F(HangingLookupTest, stopDoesNotWait)
{
    m_thread->start();
    const auto request = addHanging();
    expectQuick([this] { m_thread->stop(true); });
}

TEST_F(HangingLookupTest, destructionDoesNotWait)
{
    m_thread->start();
    const auto request = addHanging();
    expectQuick([this] { m_thread = nullptr; });
}

TEST_F(HangingLookupTest, managerDoesNotWaitForItsRemovalOrItsEnd)
{
    auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto removed = hangingRequest();
    const auto kept = hangingRequest();
    manager->addRequest(removed.get());
    manager->addRequest(kept.get());
    while (!CLookupGate::get().isHolding())
        manager->handleEvents(nullptr);
    expectQuick([&] {
        manager->removeRequest(removed.get());
        manager = nullptr;
    });
}

} // namespace
