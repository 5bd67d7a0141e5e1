// The asynchronous side of a request, driven by hand as a manager drives it.
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/norla/core/CThrowingListener.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

#include <future>
#include <optional>

namespace {

class CAsyncListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override
    {
        m_calls.push_back(error ? error->getMessage() : "success");
        m_wasDone = request->isAsyncDone();
    }

    std::vector<kx::String> m_calls;
    bool m_wasDone = false;
};

/// Lets another thread look at the result while it is told.
class CLookingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest* request, const kx::CError*) override
    {
        m_look = std::async(
            std::launch::async, [request] { support::errorOf([request] { request->checkAsyncResult(); }); });
        m_couldLook = m_look.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }

    std::future<void> m_look;
    bool m_couldLook = false;
};

class CThrowingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int, int, const norla::CNetRequest::HeaderMap&) override
    {
        throw kx::CError("sink failed");
    }
};

class CNetRequestAsyncTest : public CRequestFixture {
protected:
    /// What a manager does, with libcurl's easy interface in place of its multi interface.
    void run(const std::string& path = "/", const char* url = nullptr)
    {
        request().setURL(kx::String::fromUTF8(url ? url : server().url(path)));
        request().setAsyncInfo(false, CURLE_OK);
        const CURLcode result = curl_easy_perform(request().getEasyHandle());
        request().setAsyncInfo(true, result);
    }

    kx::P<kx::CError> result()
    {
        return support::errorOf([this] { request().checkAsyncResult(); });
    }

    /// What is thrown at an end whose status libcurl does not tell.
    kx::P<kx::CError> failureToRecord()
    {
        support::CCurlCalls calls;
        request().setURL(kx::String::fromUTF8(server().url()));
        request().setAsyncInfo(false, CURLE_OK);
        calls.fail("curl_easy_getinfo");
        return support::errorOf([this] { request().setAsyncInfo(true, CURLE_OK); });
    }
};

TEST_F(CNetRequestAsyncTest, isNotDoneAtFirst)
{
    EXPECT_FALSE(request().isAsyncDone());
    EXPECT_FALSE(request().waitAsyncDone(0));
    EXPECT_EQ(result(), nullptr);
}

TEST_F(CNetRequestAsyncTest, isDoneWithoutErrorAfterASuccess)
{
    answer(ok("x"));
    run();
    EXPECT_TRUE(request().isAsyncDone());
    EXPECT_TRUE(request().waitAsyncDone(0));
    EXPECT_TRUE(request().getAsyncDoneSignal()->isSet());
    EXPECT_EQ(result(), nullptr);
    EXPECT_EQ(body(), "x");
}

TEST_F(CNetRequestAsyncTest, isNotDoneWhileItIsQueued)
{
    answer(ok("x"));
    run();
    request().setAsyncInfo(false, CURLE_OK);
    EXPECT_FALSE(request().isAsyncDone());
    EXPECT_EQ(body(), ""); // reset for the next transfer
}

TEST_F(CNetRequestAsyncTest, throwsTheTransfersError)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    run();
    const auto error = result();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage().toUTF8(),
        support::libcurlSays(
            "Transferred a partial file: transfer closed with 5 bytes remaining to read (response code: http 200)"));
}

TEST_F(CNetRequestAsyncTest, throwsForAStatusOf404)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 8\r\n\r\nNot here");
    run();
    const auto error = result();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(error->getProps().get("responseCode"), "404");
    EXPECT_EQ(error->getProps().get("serverMessage"), "Not here");
}

TEST_F(CNetRequestAsyncTest, throwsForAFinalStatusOf101)
{
    answer("HTTP/1.1 101 Switching Protocols\r\n\r\nx");
    run();
    const auto error = result();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(error->getProps().get("responseCode"), "101");
}

TEST_F(CNetRequestAsyncTest, doesNotLookAtTheStatusOfAnUpperCaseURL)
{
    // The prefix is compared as it is written here, unlike in perform().
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    run("/", server().url("/", "HTTP").c_str());
    EXPECT_EQ(result(), nullptr);
}

TEST_F(CNetRequestAsyncTest, throwsTheSinksError)
{
    answer(ok("x"));
    request().setReceiveDataSink(kx::newObj<CThrowingSink>().get());
    run();
    EXPECT_EQ(result()->getMessage(), "sink failed");
}

TEST_F(CNetRequestAsyncTest, neverCountsAsSuccessAfterASinkFailed)
{
    answer(ok("x"));
    request().setReceiveDataSink(kx::newObj<CThrowingSink>().get());
    request().setURL(kx::String::fromUTF8(server().url("/")));
    request().setAsyncInfo(false, CURLE_OK);
    curl_easy_perform(request().getEasyHandle());
    request().setAsyncInfo(true, CURLE_OK); // as if libcurl had not noticed
    EXPECT_EQ(result()->getMessage(), "sink failed");
}

TEST_F(CNetRequestAsyncTest, failsWhenLibcurlAsksForHelpInPlaceOfSendingAMail)
{
    const auto listener = kx::newObj<CAsyncListener>();
    server()
        .onConnection()
        .send("220 hello\r\n")
        .readUntil("\r\n")
        .send("250 ok\r\n")
        .readUntil("HELP\r\n")
        .send("214 help\r\n")
        .readUntil("QUIT\r\n");
    request().setDoneListener(listener.get());
    request().setUpload(true);
    run("/", server().url("", "smtp").c_str());
    const kx::String message = "Failed sending data to the peer: the message has no recipients and was not sent";
    const auto error = result();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SEND_ERROR);
    EXPECT_EQ(error->getMessage(), message);
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{message});
}

TEST_F(CNetRequestAsyncTest, tellsTheListenerOfSuccessOnceItIsDone)
{
    const auto listener = kx::newObj<CAsyncListener>();
    answer(ok("x"));
    request().setDoneListener(listener.get());
    run();
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{"success"});
    EXPECT_TRUE(listener->m_wasDone);
}

TEST_F(CNetRequestAsyncTest, tellsTheListenerOfTheError)
{
    const auto listener = kx::newObj<CAsyncListener>();
    answer("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
    request().setDoneListener(listener.get());
    run();
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{"HTTP response code said error (response code: http 500)"});
}

TEST_F(CNetRequestAsyncTest, letsOthersLookAtTheResultWhileTheListenerIsToldOfSuccess)
{
    const auto listener = kx::newObj<CLookingListener>();
    answer(ok("x"));
    request().setDoneListener(listener.get());
    run();
    EXPECT_TRUE(listener->m_couldLook);
}

TEST_F(CNetRequestAsyncTest, letsOthersLookAtTheResultWhileTheListenerIsToldOfAFailure)
{
    const auto listener = kx::newObj<CLookingListener>();
    answer("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
    request().setDoneListener(listener.get());
    run();
    EXPECT_TRUE(listener->m_couldLook);
}

TEST_F(CNetRequestAsyncTest, tellsTheListenerNothingWhenItIsQueued)
{
    const auto listener = kx::newObj<CAsyncListener>();
    request().setDoneListener(listener.get());
    request().setAsyncInfo(false, CURLE_OK);
    EXPECT_TRUE(listener->m_calls.empty());
}

TEST_F(CNetRequestAsyncTest, forgetsTheLastErrorTextWhenItIsQueued)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    run(); // libcurl has explained the failure
    request().setAsyncInfo(false, CURLE_OK);
    request().setAsyncInfo(true, CURLE_RECV_ERROR); // and says nothing about this one
    EXPECT_EQ(result()->getMessage(), "Failure when receiving data from the peer (response code: http 200)");
}

TEST_F(CNetRequestAsyncTest, throwsTheErrorThatKeepsItsEndFromBeingRecorded)
{
    const auto error = failureToRecord();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_BAD_FUNCTION_ARGUMENT);
}

TEST_F(CNetRequestAsyncTest, isDoneAlsoWhenItsEndCannotBeRecorded)
{
    failureToRecord();
    EXPECT_TRUE(request().isAsyncDone());
    EXPECT_NE(result(), nullptr); // not a success
}

TEST_F(CNetRequestAsyncTest, tellsTheListenerWhyItsEndCannotBeRecordedOnceItIsDone)
{
    const auto listener = kx::newObj<CAsyncListener>();
    request().setDoneListener(listener.get());
    const auto error = failureToRecord();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{error->getMessage()});
    EXPECT_TRUE(listener->m_wasDone);
}

TEST_F(CNetRequestAsyncTest, letsOthersLookAtTheResultWhileTheListenerIsToldThatItsEndCannotBeRecorded)
{
    const auto listener = kx::newObj<CLookingListener>();
    request().setDoneListener(listener.get());
    failureToRecord();
    EXPECT_TRUE(listener->m_couldLook);
}

TEST_F(CNetRequestAsyncTest, throwsWhyItsEndCannotBeRecordedAlthoughTheListenerThrows)
{
    const support::CLogRecorder log;
    request().setDoneListener(kx::newObj<CThrowingListener>().get());
    const auto error = failureToRecord();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{
            "error: A done listener has thrown after a failed transfer (ignored).: listener failed"});
}

TEST_F(CNetRequestAsyncTest, hasNoErrorWhileItIsQueued)
{
    request().setURL(kx::String::fromUTF8(server().url()));
    request().setAsyncInfo(false, CURLE_COULDNT_CONNECT);
    EXPECT_EQ(result(), nullptr);
}

TEST_F(CNetRequestAsyncTest, isNotDoneAfterAResetAndHasNoError)
{
    answer("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
    run();
    request().reset();
    EXPECT_FALSE(request().isAsyncDone());
    EXPECT_EQ(result(), nullptr);
    expectGoodTransfer();
}

} // namespace
