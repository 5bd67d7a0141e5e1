#include "norla/async/CAsyncNetRequestManager.h"

#include "norla/core/CCURLError.h"
#include "norla/core/CGlobalInit.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/async/CAsyncFixture.h"
#include "tests/support/CFullProcess.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

#include <arpa/inet.h>
#include <future>
#include <optional>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using norla::CAsyncNetRequestManager;
using norla::CNetRequest;
using support::messageOf;
using Strings = std::vector<std::string>;

constexpr char internalError[] = "Internal error";

class CAsyncNetRequestManagerTest : public CAsyncFixture {
protected:
    CAsyncNetRequestManagerTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    CAsyncNetRequestManager& manager() { return *m_manager; }
    void destroyManager() { m_manager = nullptr; }

    Request add(const Request& request)
    {
        manager().addRequest(request.get());
        return request;
    }

    /// A transfer whose request the server has, and which it leaves without an answer.
    Request addRunning()
    {
        const size_t connection = server().connectionCount();
        auto request = add(stalledRequest());
        driveUntilReceived(connection);
        return request;
    }

    void driveUntilReceived(size_t connection)
    {
        EXPECT_TRUE(waitUntil([this, connection] {
            EXPECT_EQ(manager().handleEvents(nullptr), 0);
            return !server().received(connection).empty();
        }));
    }

    /// Of the client's connections to the server the one opened last; -1 when there is none.
    int clientDescriptor()
    {
        for (int descriptor = 2 * FD_SETSIZE; descriptor >= 0; --descriptor) {
            sockaddr_in peer{};
            socklen_t size = sizeof(peer);
            if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0
                && ntohs(peer.sin_port) == server().getPort())
                return descriptor;
        }
        return -1;
    }

    /// Drives the manager until that many requests have ended, in order of their ends.
    std::vector<Request> finish(size_t count)
    {
        std::vector<Request> finished;
        EXPECT_TRUE(waitUntil([this, count, &finished] {
            manager().waitForEvents(10);
            manager().handleEvents(&finished);
            return finished.size() >= count;
        }));
        return finished;
    }

    /// Whether the manager has exactly these, in this order: each leaves it as it is looked for.
    void expectRequests(const std::vector<Request>& expected)
    {
        for (const Request& request : expected)
            EXPECT_TRUE(manager().removeRequest(request.get()));
        EXPECT_EQ(manager().handleEvents(nullptr), 0);
        support::CWaitCalls waits;
        manager().waitForEvents(1000);
        EXPECT_EQ(waits.takeWaits(), Strings{"sleep 100"}); // nothing runs
    }

    static void expectInternalError(const kx::P<kx::CError>& error)
    {
        ASSERT_NE(error, nullptr);
        EXPECT_TRUE(dynamic_cast<const norla::CCURLError*>(error.get()));
        EXPECT_EQ(error->getDomain(), "curlm");
        EXPECT_EQ(error->getCode(), CURLM_INTERNAL_ERROR);
        EXPECT_EQ(error->getMessage(), internalError);
        EXPECT_TRUE(error->getProps().getMap().empty());
    }

    support::CCurlCalls m_calls;

private:
    kx::P<CAsyncNetRequestManager> m_manager = kx::newObj<CAsyncNetRequestManager>();
};

// ---- construction and destruction

TEST_F(CAsyncNetRequestManagerTest, initialisesTheLibrary)
{
    const auto run = [this] {
        destroyManager();
        std::exit(norla::CGlobalInit::globalInstanceGuard() ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhenThereIsNoMultiHandle)
{
    m_calls.fail("curl_multi_init");
    const auto error = support::errorOf([] { CAsyncNetRequestManager(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Error creating curl multi handle.");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
}

TEST_F(CAsyncNetRequestManagerTest, freesItsMultiHandle)
{
    destroyManager();
    EXPECT_EQ(m_calls.countOf("curl_multi_cleanup"), 1);
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
}

TEST_F(CAsyncNetRequestManagerTest, withdrawsWhatStillRunsWhenItIsDestroyed)
{
    const auto listener = kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) {});
    const auto request = addRunning();
    request->setDoneListener(listener.get());
    destroyManager();
    EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(listener->m_calls, 0);
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 1);
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
}

TEST_F(CAsyncNetRequestManagerTest, reportsAnErrorOfItsDestructionAndKeepsTheMultiHandle)
{
    const support::CLogRecorder log;
    auto request = add(badRequest());
    m_calls.fail("curl_multi_remove_handle", 0, 1);
    destroyManager();
    EXPECT_EQ(log.lines(),
        Strings{"error: Exception in the destructor of norla::CAsyncNetRequestManager (ignored).: Internal error"});
    EXPECT_EQ(m_calls.countOf("curl_multi_cleanup"), 0);
    request = nullptr;
    EXPECT_EQ(m_calls.cleanUpMultis(), 1U);
}

TEST_F(CAsyncNetRequestManagerTest, dropsItsReferencesThoughWithdrawingFails)
{
    const support::CLogRecorder log;
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    manager().addRequest(kx::newObj<CWatchedRequest>(gone).get());
    m_calls.fail("curl_multi_remove_handle", 0, 1);
    destroyManager();
    EXPECT_TRUE(*gone);
    m_calls.cleanUpMultis();
}

// ---- adding

TEST_F(CAsyncNetRequestManagerTest, preparesARequestWhenItIsAdded)
{
    answer(ok("first"));
    const auto request = add(newRequest());
    finish(1);
    EXPECT_EQ(bodyOf(request), "first");
    add(request);
    EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(bodyOf(request), "");
}

TEST_F(CAsyncNetRequestManagerTest, startsNothingBeforeTheNextHandleEvents)
{
    add(newRequest());
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(CAsyncNetRequestManagerTest, keepsARequestAlive)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    auto request = kx::newObj<CWatchedRequest>(gone);
    CNetRequest* const raw = request.get();
    manager().addRequest(raw);
    request = nullptr;
    EXPECT_FALSE(*gone);
    EXPECT_TRUE(manager().removeRequest(raw));
    EXPECT_TRUE(*gone);
}

TEST_F(CAsyncNetRequestManagerTest, refusesNull)
{
    EXPECT_EQ(messageOf([this] { manager().addRequest(nullptr); }),
        "Invalid argument passed to 'CAsyncNetRequestManager::addRequest': request is null.");
}

TEST_F(CAsyncNetRequestManagerTest, doesNotKeepARequestThatLibcurlRefuses)
{
    const auto first = add(badRequest());
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    auto request = kx::newObj<CWatchedRequest>(gone);
    m_calls.fail("curl_multi_add_handle");
    expectInternalError(support::errorOf([this, &request] { manager().addRequest(request.get()); }));
    EXPECT_FALSE(manager().removeRequest(request.get()));
    request = nullptr;
    EXPECT_TRUE(*gone);
    expectRequests({first});
}

TEST_F(CAsyncNetRequestManagerTest, tellsThatARequestRunsAlready)
{
    const auto request = add(badRequest());
    EXPECT_EQ(messageOf([this, &request] { manager().addRequest(request.get()); }),
        "The easy handle is already added to a multi handle");
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhatTheSourceOfAnAddedRequestThrows)
{
    class CBadSource : public kx::CBase, public virtual CNetRequest::IDataSource {
    public:
        int read(unsigned char*, int, const CNetRequest::HeaderMap&) override { return 0; }
        long long getLength() override { return 0; }
        void seek(long long) override { throw kx::CError("cannot seek"); }
        long long getPosition() override { return 1; }
    };
    const auto request = newRequest();
    request->setSendDataSource(kx::newObj<CBadSource>().get());
    EXPECT_EQ(messageOf([this, &request] { manager().addRequest(request.get()); }), "cannot seek");
    expectRequests({});
}

TEST_F(CAsyncNetRequestManagerTest, doesNotMindThatAListenerWhoHandsOverAPerformedRequestThrows)
{
    answer(ok("first"));
    answer(ok("next"));
    const auto request = newRequest();
    const auto listener = kx::newObj<CActionListener>([this](CNetRequest* done, const kx::CError*) {
        done->setDoneListener(nullptr);
        manager().addRequest(done);
        throw kx::CError("listener failed");
    });
    request->setDoneListener(listener.get());
    EXPECT_EQ(messageOf([&] { request->perform(); }), "listener failed");
    finish(1);
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_EQ(bodyOf(request), "next");
}

// ---- removing

TEST_F(CAsyncNetRequestManagerTest, doesNotRemoveWhatWasNeverAdded)
{
    const auto added = add(badRequest());
    const auto other = badRequest();
    EXPECT_FALSE(manager().removeRequest(other.get()));
    EXPECT_FALSE(manager().removeRequest(nullptr));
    expectRequests({added});
}

TEST_F(CAsyncNetRequestManagerTest, neverTellsTheEndOfARemovedRequest)
{
    const auto listener = kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) {});
    const auto request = addRunning();
    request->setDoneListener(listener.get());
    EXPECT_TRUE(manager().removeRequest(request.get()));
    EXPECT_FALSE(manager().removeRequest(request.get()));
    EXPECT_EQ(manager().handleEvents(nullptr), 0);
    EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(listener->m_calls, 0);
}

TEST_F(CAsyncNetRequestManagerTest, neverTellsAnEndThatCameBeforeTheRemoval)
{
    const auto request = add(badRequest());
    m_calls.fail("curl_multi_info_read", 0, 1); // the message of the end stays in libcurl
    EXPECT_EQ(manager().handleEvents(nullptr), 0);
    EXPECT_TRUE(manager().removeRequest(request.get()));
    EXPECT_EQ(manager().handleEvents(nullptr), 0);
    EXPECT_FALSE(request->isAsyncDone());
}

// What libcurl says of a transfer that it has not begun is about the one before.
TEST_F(CAsyncNetRequestManagerTest, leavesTheConnectionAloneThatARemovedRequestHadBefore)
{
    std::promise<void> gate;
    server()
        .onConnection()
        .readHead()
        .send(ok("first"))
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc")
        .waitFor(gate.get_future().share())
        .send("def");
    const auto request = add(newRequest());
    finish(1);
    const auto other = add(newRequest());
    EXPECT_TRUE(waitUntil([this, &other] {
        manager().handleEvents(nullptr);
        return bodyOf(other) == "abc";
    }));
    EXPECT_EQ(server().connectionCount(), 1U);
    request->setURL(kx::String::fromUTF8(server().url("/x", "sftp")));
    add(request);
    EXPECT_TRUE(manager().removeRequest(request.get()));
    gate.set_value();
    finish(1);
    EXPECT_EQ(resultOf(other), "success");
    EXPECT_EQ(bodyOf(other), "abcdef");
}

TEST_F(CAsyncNetRequestManagerTest, runsARemovedRequestAgain)
{
    const auto request = addRunning();
    manager().removeRequest(request.get());
    answer(ok("again"));
    add(request);
    finish(1);
    EXPECT_EQ(bodyOf(request), "again");
}

TEST_F(CAsyncNetRequestManagerTest, removesByPositionAndKeepsTheOrderOfTheOthers)
{
    const std::vector<Request> requests = {add(badRequest()), add(badRequest()), add(badRequest()), add(badRequest())};
    manager().removeRequest(1);
    manager().removeRequest(1); // the one that was at 2
    EXPECT_FALSE(manager().removeRequest(requests[1].get()));
    EXPECT_FALSE(manager().removeRequest(requests[2].get()));
    manager().removeRequest(1);
    EXPECT_FALSE(manager().removeRequest(requests[3].get()));
    expectRequests({requests[0]});
}

TEST_F(CAsyncNetRequestManagerTest, keepsARequestThatLibcurlDoesNotLetGo)
{
    const auto request = add(badRequest());
    m_calls.fail("curl_multi_remove_handle");
    expectInternalError(support::errorOf([this, &request] { manager().removeRequest(request.get()); }));
    expectInternalError(support::errorOf([this] { manager().removeRequest(0); }));
    m_calls.succeed();
    expectRequests({request});
}

TEST_F(CAsyncNetRequestManagerTest, removesAll)
{
    add(badRequest());
    add(badRequest());
    manager().removeAllRequests();
    expectRequests({});
}

TEST_F(CAsyncNetRequestManagerTest, removesAllFromTheLastToTheFirstUntilAnError)
{
    const std::vector<Request> requests = {add(badRequest()), add(badRequest()), add(badRequest())};
    m_calls.fail("curl_multi_remove_handle", 1);
    expectInternalError(support::errorOf([this] { manager().removeAllRequests(); }));
    m_calls.succeed();
    EXPECT_FALSE(manager().removeRequest(requests[2].get()));
    expectRequests({requests[0], requests[1]});
}

TEST_F(CAsyncNetRequestManagerTest, letsWhatARemovedRequestHeldComeBackToIt)
{
    class CRemovingListener : public CActionListener {
    public:
        CRemovingListener(CAsyncNetRequestManager& manager, CNetRequest* other)
            : CActionListener([](CNetRequest*, const kx::CError*) {})
            , m_manager(manager)
            , m_other(other)
        {
        }
        ~CRemovingListener() override { m_manager.removeRequest(m_other); }

    private:
        CAsyncNetRequestManager& m_manager;
        CNetRequest* const m_other;
    };
    auto first = badRequest();
    const auto second = add(badRequest());
    first->setDoneListener(kx::newObj<CRemovingListener>(manager(), second.get()).get());
    CNetRequest* const raw = first.get();
    manager().addRequest(raw);
    add(badRequest());
    first = nullptr;
    EXPECT_TRUE(manager().removeRequest(raw));
    EXPECT_FALSE(manager().removeRequest(second.get()));
    manager().removeRequest(0);
    expectRequests({});
}

// ---- waiting

TEST_F(CAsyncNetRequestManagerTest, napsForATenthOfASecondWithoutRequests)
{
    const auto start = std::chrono::steady_clock::now();
    manager().waitForEvents(5000);
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time, std::chrono::milliseconds(95));
    EXPECT_LT(time, std::chrono::seconds(2));
    EXPECT_EQ(manager().handleEvents(nullptr), 0);
}

struct CWaitCase {
    long libcurl;
    int caller;
    int waited;
};

TEST_F(CAsyncNetRequestManagerTest, waitsForADescriptorAsLongAsCallerAndLibcurlLetIt)
{
    const auto request = addRunning();
    support::CWaitCalls waits;
    for (const CWaitCase row : std::initializer_list<CWaitCase>{{-1, -1, 1000}, {-1, 5000, 1000}, {-1, 1001, 1000},
             {-1, 1000, 1000}, {-1, 999, 999}, {5000, -1, 1000}, {1001, -1, 1000}, {1000, -1, 1000}, {999, -1, 999},
             {300, -1, 300}, {300, -7, 300}, {300, 200, 200}, {300, 300, 300}, {300, 301, 300}, {300, 0, 0}, {0, 50, 0},
             {0, -1, 0}, {2000, 1500, 1000}}) {
        m_calls.setMultiTimeout(row.libcurl);
        manager().waitForEvents(row.caller);
        EXPECT_EQ(waits.takeWaits(), Strings{"select " + std::to_string(row.waited)})
            << row.libcurl << " " << row.caller;
    }
}

TEST_F(CAsyncNetRequestManagerTest, napsWithoutADescriptorAtMostATenthOfASecond)
{
    support::CWaitCalls waits;
    for (const CWaitCase row : std::initializer_list<CWaitCase>{{-1, -1, 100}, {-1, 5000, 100}, {-1, 101, 100},
             {-1, 99, 99}, {5000, -1, 100}, {50, -1, 50}, {300, 20, 20}}) {
        m_calls.setMultiTimeout(row.libcurl);
        manager().waitForEvents(row.caller);
        EXPECT_EQ(waits.takeWaits(), Strings{"sleep " + std::to_string(row.waited)})
            << row.libcurl << " " << row.caller;
    }
}

TEST_F(CAsyncNetRequestManagerTest, onlyLooksWithALimitOfZero)
{
    support::CWaitCalls waits;
    manager().waitForEvents(0);
    for (const std::string& wait : waits.takeWaits()) // a sleep of nothing need not reach the system
        EXPECT_EQ(wait, "sleep 0");
}

TEST_F(CAsyncNetRequestManagerTest, wakesWhenDataComes)
{
    std::promise<void> gate;
    server().onConnection().readHead().waitFor(gate.get_future().share()).send(ok("x"));
    const auto request = add(newRequest());
    driveUntilReceived(0);
    m_calls.setMultiTimeout(-1);
    gate.set_value();
    const auto start = std::chrono::steady_clock::now();
    manager().waitForEvents(-1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    finish(1);
    EXPECT_EQ(bodyOf(request), "x");
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhenLibcurlHasNoDescriptors)
{
    m_calls.fail("curl_multi_fdset");
    expectInternalError(support::errorOf([this] { manager().waitForEvents(0); }));
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhenLibcurlHasNoTimeout)
{
    m_calls.fail("curl_multi_timeout");
    expectInternalError(support::errorOf([this] { manager().waitForEvents(0); }));
}

TEST_F(CAsyncNetRequestManagerTest, doesNotWaitWhenLibcurlWantsToGoOnAtOnce)
{
    const auto request = addRunning();
    m_calls.setMultiResult(CURLM_CALL_MULTI_PERFORM);
    m_calls.fail("curl_multi_perform", 0, 1);
    EXPECT_EQ(manager().handleEvents(nullptr), 0);
    support::CWaitCalls waits;
    manager().waitForEvents(500);
    EXPECT_EQ(waits.takeWaits(), Strings());
    EXPECT_EQ(manager().handleEvents(nullptr), 0); // goes well: waits again
    manager().waitForEvents(500);
    EXPECT_EQ(waits.takeWaits().size(), 1U);
}

TEST_F(CAsyncNetRequestManagerTest, stillWantsToGoOnAtOnceAfterAnError)
{
    m_calls.setMultiResult(CURLM_CALL_MULTI_PERFORM);
    m_calls.fail("curl_multi_perform", 0, 1);
    manager().handleEvents(nullptr);
    m_calls.setMultiResult(CURLM_INTERNAL_ERROR);
    m_calls.fail("curl_multi_perform", 0, 1);
    expectInternalError(support::errorOf([this] { manager().handleEvents(nullptr); }));
    support::CWaitCalls waits;
    manager().waitForEvents(500);
    EXPECT_EQ(waits.takeWaits(), Strings());
}

TEST_F(CAsyncNetRequestManagerTest, collectsWhatHasEndedAlsoWhenLibcurlWantsToGoOnAtOnce)
{
    add(badRequest());
    m_calls.setMultiResult(CURLM_CALL_MULTI_PERFORM);
    m_calls.fail("curl_multi_perform", 0, 1);
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
}

TEST_F(CAsyncNetRequestManagerTest, leavesADescriptorThatSomebodyClosedToItsTransfer)
{
    const auto request = addRunning();
    const int descriptor = clientDescriptor();
    const int kept = dup(descriptor);
    ASSERT_GE(kept, 0);
    close(descriptor);
    EXPECT_EQ(messageOf([this] { manager().waitForEvents(100); }), "(no error)");
    dup2(kept, descriptor); // libcurl closes it
    close(kept);
}

// ---- events

TEST_F(CAsyncNetRequestManagerTest, deliversABody)
{
    answer(ok("hello"));
    const auto request = add(newRequest());
    const auto finished = finish(1);
    EXPECT_EQ(finished, std::vector<Request>{request});
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_EQ(bodyOf(request), "hello");
    expectRequests({});
}

TEST_F(CAsyncNetRequestManagerTest, tellsAStatusOf404AsAFailure)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    const auto request = add(newRequest());
    EXPECT_EQ(finish(1).size(), 1U);
    EXPECT_EQ(resultOf(request), "HTTP response code said error (response code: http 404)");
}

TEST_F(CAsyncNetRequestManagerTest, tellsTheResultOfItsOwnOfARequestThatWasPerformedBefore)
{
    answer(ok("performed"));
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 7\r\n\r\nmissing");
    const auto request = newRequest();
    request->perform();
    add(request);
    finish(1);
    EXPECT_EQ(resultOf(request), "HTTP response code said error (response code: http 404)");
    EXPECT_EQ(bodyOf(request), "missing");
}

TEST_F(CAsyncNetRequestManagerTest, runsARequestThatHasPerformedOverTLS)
{
    const auto& certificates = support::CTestCertificates::get();
    for (const char* const body : {"performed", "managed"})
        server()
            .onConnection()
            .startTLS(certificates.serverCertificate(), certificates.serverKey())
            .readHead()
            .send(ok(body));
    const auto request = requestTo(server().url("/", "https"));
    request->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(certificates.caFile().native()));
    request->perform();
    add(request);
    finish(1);
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_EQ(bodyOf(request), "managed");
}

TEST_F(CAsyncNetRequestManagerTest, tellsTwoEndsOfOneStepInOneCall)
{
    const std::vector<Request> requests = {add(badRequest()), add(badRequest())};
    std::vector<Request> finished = {newRequest()};
    EXPECT_EQ(manager().handleEvents(&finished), 2);
    ASSERT_EQ(finished.size(), 3U); // appended
    EXPECT_EQ(finished[1], requests[0]);
    EXPECT_EQ(finished[2], requests[1]);
    EXPECT_TRUE(requests[0]->isAsyncDone());
    EXPECT_TRUE(requests[1]->isAsyncDone());
    EXPECT_EQ(manager().handleEvents(&finished), 0);
}

TEST_F(CAsyncNetRequestManagerTest, countsEndsForWhoWantsNoArray)
{
    add(badRequest());
    add(badRequest());
    EXPECT_EQ(manager().handleEvents(nullptr), 2);
}

TEST_F(CAsyncNetRequestManagerTest, doesNotAskForEndsWhileAllAreRunning)
{
    const auto request = addRunning();
    EXPECT_EQ(m_calls.countOf("curl_multi_info_read"), 0);
}

TEST_F(CAsyncNetRequestManagerTest, givesEachRequestItsOwnResult)
{
    answer(ok("good"));
    server().onConnection().readHead().reset();
    const auto good = add(newRequest());
    EXPECT_EQ(finish(1).size(), 1U);
    const auto reset = add(newRequest());
    const auto bad = add(badRequest());
    finish(2);
    EXPECT_EQ(resultOf(good), "success");
    EXPECT_EQ(resultOf(bad),
        support::libcurlSays("Unsupported protocol: Protocol \"nonsense\" not supported or disabled in libcurl"));
    EXPECT_EQ(resultOf(reset), "Failure when receiving data from the peer: Recv failure: Connection reset by peer");
}

TEST_F(CAsyncNetRequestManagerTest, ignoresMessagesThatTellNoEnd)
{
    const auto request = addRunning();
    CURLMsg message{};
    message.msg = CURLMSG_NONE;
    message.easy_handle = request->getEasyHandle();
    m_calls.addMessage(message);
    EXPECT_EQ(manager().handleFinishedRequests(nullptr), 0);
    EXPECT_FALSE(request->isAsyncDone());
    expectRequests({request});
}

TEST_F(CAsyncNetRequestManagerTest, ignoresMessagesOfOthers)
{
    const auto stranger = badRequest();
    const auto request = add(badRequest());
    CURLMsg message{};
    message.msg = CURLMSG_DONE;
    message.easy_handle = stranger->getEasyHandle();
    m_calls.addMessage(message);
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    EXPECT_FALSE(stranger->isAsyncDone());
    EXPECT_TRUE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhenLibcurlFailsAsAWhole)
{
    const auto request = add(badRequest());
    m_calls.fail("curl_multi_perform", 1, 1);
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    add(request);
    expectInternalError(support::errorOf([this] { manager().handleEvents(nullptr); }));
    expectRequests({request});
}

TEST_F(CAsyncNetRequestManagerTest, keepsARequestThatLibcurlDoesNotLetGoAtItsEndAndTellsNothing)
{
    const auto request = add(badRequest());
    m_calls.fail("curl_multi_remove_handle", 0, 1);
    expectInternalError(support::errorOf([this] { manager().handleEvents(nullptr); }));
    EXPECT_FALSE(request->isAsyncDone());
    expectRequests({request});
}

TEST_F(CAsyncNetRequestManagerTest, letsARequestGoBeforeItTellsItsEnd)
{
    std::optional<bool> wasThere;
    std::optional<bool> wasDone;
    const auto request = badRequest();
    request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest* ended, const kx::CError*) {
        wasThere = manager().removeRequest(ended);
        wasDone = ended->isAsyncDone();
    }).get());
    add(request);
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    EXPECT_EQ(wasThere, false);
    EXPECT_EQ(wasDone, true);
}

TEST_F(CAsyncNetRequestManagerTest, tellsAnEndBeforeItAppendsTheRequestToTheFinishedOnes)
{
    std::vector<Request> finished;
    std::vector<size_t> sizes;
    std::vector<std::string> results;
    for (int i = 0; i < 2; ++i) {
        const auto request = add(badRequest());
        request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest* ended, const kx::CError*) {
            sizes.push_back(finished.size());
            results.push_back(resultOf(Request(ended)));
        }).get());
    }
    EXPECT_EQ(manager().handleEvents(&finished), 2);
    EXPECT_EQ(sizes, (std::vector<size_t>{0, 1}));
    EXPECT_EQ(finished.size(), 2U);
    for (const std::string& result : results)
        EXPECT_TRUE(result.starts_with("Unsupported protocol: ")) << result;
}

TEST_F(CAsyncNetRequestManagerTest, doesNotAppendARequestWhoseListenerThrows)
{
    std::vector<Request> finished;
    const auto request = add(badRequest());
    request->setDoneListener(kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) {
        throw kx::CError("listener failed");
    }).get());
    EXPECT_EQ(messageOf([this, &finished] { manager().handleEvents(&finished); }), "listener failed");
    EXPECT_TRUE(finished.empty());
}

TEST_F(CAsyncNetRequestManagerTest, keepsARequestAliveWhileItTellsItsEnd)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    std::optional<bool> goneInside;
    auto request = kx::newObj<CWatchedRequest>(gone);
    request->setURL("nonsense://127.0.0.1/");
    request->setDoneListener(
        kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) { goneInside = *gone; }).get());
    manager().addRequest(request.get());
    request = nullptr;
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    EXPECT_EQ(goneInside, false);
    EXPECT_TRUE(*gone);
}

TEST_F(CAsyncNetRequestManagerTest, letsAListenerStartTheNextTransfer)
{
    int left = 3;
    const auto request = badRequest();
    const auto listener = kx::newObj<CActionListener>([&](CNetRequest* ended, const kx::CError*) {
        if (--left > 0)
            manager().addRequest(ended);
    });
    request->setDoneListener(listener.get());
    add(request);
    EXPECT_EQ(finish(3).size(), 3U);
    EXPECT_EQ(listener->m_calls, 3);
    EXPECT_TRUE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestManagerTest, letsAListenerWithdrawAnother)
{
    const auto second = stalledRequest();
    const auto first = badRequest();
    first->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        manager().removeRequest(second.get());
    }).get());
    add(first);
    add(second);
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    EXPECT_FALSE(manager().removeRequest(second.get()));
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhatAListenerThrowsAndTellsTheOthersNextTime)
{
    const auto thrower = badRequest();
    thrower->setDoneListener(kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) {
        throw kx::CError("listener failed");
    }).get());
    add(thrower);
    const auto other = add(badRequest());
    EXPECT_EQ(messageOf([this] { manager().handleEvents(nullptr); }), "listener failed");
    EXPECT_TRUE(thrower->isAsyncDone());
    EXPECT_FALSE(other->isAsyncDone());
    EXPECT_EQ(manager().handleEvents(nullptr), 1);
    EXPECT_TRUE(other->isAsyncDone());
}

TEST_F(CAsyncNetRequestManagerTest, refusesToBeUsedInASink)
{
    answer(ok("x"));
    const auto request = newRequest();
    const auto other = badRequest();
    std::vector<kx::String> messages;
    request->setReceiveDataSink(kx::newObj<CActionSink>([&] {
        messages.push_back(messageOf([&] { manager().addRequest(other.get()); }));
        messages.push_back(messageOf([&] { manager().removeRequest(request.get()); }));
        messages.push_back(messageOf([&] { manager().handleEvents(nullptr); }));
    }).get());
    add(request);
    finish(1);
    const kx::String refusal = "API function called from within callback";
    EXPECT_EQ(messages, (std::vector<kx::String>{refusal, refusal, refusal}));
    EXPECT_EQ(resultOf(request), "success");
}

TEST_F(CAsyncNetRequestManagerTest, endsATransferWhoseSinkThrows)
{
    answer(ok("x"));
    const auto request = newRequest();
    request->setReceiveDataSink(kx::newObj<CActionSink>([] { throw kx::CError("disk full"); }).get());
    add(request);
    finish(1);
    EXPECT_EQ(resultOf(request), "disk full");
}

TEST_F(CAsyncNetRequestManagerTest, keepsSigPipeFromItsThreadDuringLibcurlsWorkAlone)
{
    const auto isBlocked = [] {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return sigismember(&mask, SIGPIPE) == 1;
    };
    answer(ok("x"));
    std::optional<bool> inside;
    std::optional<bool> inListener;
    const auto request = newRequest();
    request->setReceiveDataSink(kx::newObj<CActionSink>([&] { inside = isBlocked(); }).get());
    request->setDoneListener(
        kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) { inListener = isBlocked(); }).get());
    add(request);
    finish(1);
    EXPECT_EQ(inside, true);
    EXPECT_EQ(inListener, false);
}

TEST_F(CAsyncNetRequestManagerTest, leavesSigPipeAloneWhenItTakesANewRequest)
{
    addRunning();
    EXPECT_FALSE(m_calls.wasSigPipeBlocked("curl_multi_add_handle"));
}

TEST_F(CAsyncNetRequestManagerTest, keepsSigPipeFromItsThreadWhenItTakesARequestThatHasPerformed)
{
    answer(ok("x"));
    const auto request = newRequest();
    request->perform();
    add(request);
    EXPECT_TRUE(m_calls.wasSigPipeBlocked("curl_multi_add_handle"));
}

TEST_F(CAsyncNetRequestManagerTest, keepsSigPipeFromItsThreadWhenItWithdrawsARequest)
{
    const auto request = addRunning();
    manager().removeRequest(request.get());
    EXPECT_TRUE(m_calls.wasSigPipeBlocked("curl_multi_remove_handle"));
}

TEST_F(CAsyncNetRequestManagerTest, leavesSigPipeAloneWhenItLetsGoARequestThatHasEnded)
{
    answer(ok("x"));
    add(newRequest());
    finish(1);
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 1);
    EXPECT_FALSE(m_calls.wasSigPipeBlocked("curl_multi_remove_handle"));
}

TEST_F(CAsyncNetRequestManagerTest, uploads)
{
    server().onConnection().readHead().readBytes(4).send("HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n");
    const auto request = newRequest();
    request->setSendDataAsUTF8("text");
    request->setHTTPMethod("PUT");
    add(request);
    finish(1);
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_TRUE(server().received(0).ends_with("\r\n\r\ntext"));
}

// ---- descriptors beyond what select() can watch

TEST_F(CAsyncNetRequestManagerTest, finishesTransfersWhoseDescriptorsNoSetCanHold)
{
    const support::CFullProcess full;
    std::vector<Request> requests;
    for (int i = 0; i < 20; ++i) {
        answer(ok(std::string(100'000, 'x')));
        requests.push_back(add(newRequest()));
    }
    finish(requests.size());
    for (const Request& request : requests) {
        EXPECT_EQ(resultOf(request), "success");
        EXPECT_EQ(bodyOf(request).size(), 100'000U);
    }
}

TEST_F(CAsyncNetRequestManagerTest, wakesForADescriptorThatNoSetCanHoldBesideOneThatCanBeHeld)
{
    const auto small = addRunning();
    const support::CFullProcess full;
    std::promise<void> gate;
    server().onConnection().readHead().waitFor(gate.get_future().share()).send(ok("x"));
    const auto large = add(newRequest());
    driveUntilReceived(1);
    EXPECT_GE(clientDescriptor(), FD_SETSIZE);
    const int polls = m_calls.countOf("curl_multi_poll");
    gate.set_value();
    EXPECT_EQ(finish(1), std::vector<Request>{large});
    EXPECT_GT(m_calls.countOf("curl_multi_poll"), polls);
}

TEST_F(CAsyncNetRequestManagerTest, throwsWhenLibcurlCannotWaitForSuchADescriptor)
{
    const support::CFullProcess full;
    const auto request = addRunning();
    m_calls.fail("curl_multi_poll");
    expectInternalError(support::errorOf([this] { manager().waitForEvents(0); }));
}

TEST_F(CAsyncNetRequestManagerTest, leavesTheWaitingToSelectWhereNoDescriptorCanBeThatLarge)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit small = before;
    small.rlim_cur = FD_SETSIZE;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &small), 0);
    const auto request = add(badRequest()); // without a descriptor
    support::CWaitCalls waits;
    m_calls.setMultiTimeout(-1);
    manager().waitForEvents(70);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(waits.takeWaits(), Strings{"sleep 70"});
    EXPECT_EQ(m_calls.countOf("curl_multi_poll"), 0);
}

} // namespace
