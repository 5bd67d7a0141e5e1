// What an application throws inside a callback, and what of it comes out at the other end.
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/norla/core/failingCallbacks.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <tuple>

namespace {

using Row = std::tuple<FailingPlace, CThrown>;

std::string nameOfRow(const testing::TestParamInfo<Row>& row)
{
    return std::string(nameOf(std::get<0>(row.param))) + "_" + std::get<1>(row.param).name;
}

class CallbackErrorTest : public CRequestFixture {
protected:
    CallbackErrorTest() { request().setDefaultOptions(); }

    // What libcurl calls, called in its place.
    size_t write()
    {
        char data[1] = {};
        const auto callback = reinterpret_cast<curl_write_callback>(m_calls.pointerOf(CURLOPT_WRITEFUNCTION));
        return callback(data, 1, 1, m_calls.pointerOf(CURLOPT_WRITEDATA));
    }

    size_t read()
    {
        char data[1] = {};
        const auto callback = reinterpret_cast<curl_read_callback>(m_calls.pointerOf(CURLOPT_READFUNCTION));
        return callback(data, 1, 1, m_calls.pointerOf(CURLOPT_READDATA));
    }

    int seek()
    {
        const auto callback = reinterpret_cast<curl_seek_callback>(m_calls.pointerOf(CURLOPT_SEEKFUNCTION));
        return callback(m_calls.pointerOf(CURLOPT_SEEKDATA), 0, SEEK_SET);
    }

    static void throwError(const char* message) { throw kx::CError(kx::String::fromLatin1(message)); }

    /// Each of the three places throws an error that names it.
    void failEverywhere()
    {
        request().setReceiveDataSink(kx::newObj<CThrowingSink>([] { throwError("sink"); }).get());
        request().setSendDataSource(
            kx::newObj<CThrowingSource>([] { throwError("read"); }, [] { throwError("seek"); }).get());
    }

    kx::String messageOfTransferWith(const std::function<void()>& callbacks)
    {
        request().setAsyncInfo(false, CURLE_OK);
        callbacks();
        request().setAsyncInfo(true, CURLE_ABORTED_BY_CALLBACK);
        return support::messageOf([this] { request().checkAsyncResult(); });
    }

    void answerAt(FailingPlace place)
    {
        if (place == FailingPlace::Sink)
            answer(ok("x"));
        else if (place == FailingPlace::Read)
            server().onConnection().readHead().readToEnd();
        else
            server().onConnection().readHead().readBytes(8).send(
                "HTTP/1.1 307 Temporary Redirect\r\nLocation: /target\r\nContent-Length: 0\r\n\r\n");
    }

private:
    support::CCurlCalls m_calls;
};

class CallbackErrorAtPlaceTest : public CallbackErrorTest, public testing::WithParamInterface<Row> {};

TEST_P(CallbackErrorAtPlaceTest, leavesPerformAsItWasThrown)
{
    const auto& [place, thrown] = GetParam();
    answerAt(place);
    failAt(place, request(), thrown.action);
    request().setURL(kx::String::fromUTF8(server().url()));
    expectThrown(thrown, [this] { request().perform(); });
}

TEST_P(CallbackErrorAtPlaceTest, isToldAtTheEndOfAnAsynchronousTransferAsItWasThrown)
{
    const auto& [place, thrown] = GetParam();
    failAt(place, request(), thrown.action);
    request().setAsyncInfo(false, CURLE_OK);
    if (place == FailingPlace::Sink)
        write();
    else if (place == FailingPlace::Read)
        read();
    else
        seek();
    request().setAsyncInfo(true, CURLE_ABORTED_BY_CALLBACK);
    expectThrown(thrown, [this] { request().checkAsyncResult(); });
}

INSTANTIATE_TEST_SUITE_P(All, CallbackErrorAtPlaceTest,
    testing::Combine(
        testing::Values(FailingPlace::Sink, FailingPlace::Read, FailingPlace::Seek), testing::ValuesIn(thrownThings)),
    nameOfRow);

TEST_F(CallbackErrorTest, isTheFirstOneWhicheverComesFirst)
{
    failEverywhere();
    EXPECT_EQ(messageOfTransferWith([this] { write(), seek(), read(); }), "sink");
    EXPECT_EQ(messageOfTransferWith([this] { seek(), read(), write(); }), "seek");
    EXPECT_EQ(messageOfTransferWith([this] { read(), write(), seek(); }), "read");
}

TEST_F(CallbackErrorTest, isTheFirstOneAlsoWhenPerformThrowsIt)
{
    const support::CLogRecorder log; // the sink is called before there is a status line
    server().onConnection().readHead().readToEnd();
    request().setReceiveDataSink(kx::newObj<CThrowingSink>([] { throwError("sink"); }).get());
    request().setSendDataSource(kx::newObj<CThrowingSource>([this] {
        write();
        throwError("read");
    }).get());
    request().setHTTPMethod("PUT");
    EXPECT_EQ(failureOf()->getMessage(), "sink");
}

TEST_F(CallbackErrorTest, isForgottenByTheNextTransfer)
{
    failEverywhere();
    messageOfTransferWith([this] { write(); });
    EXPECT_EQ(messageOfTransferWith([this] { read(); }), "read");
}

TEST_F(CallbackErrorTest, isToldToLibcurlByItsValueForEachCallback)
{
    failEverywhere();
    EXPECT_EQ(read(), static_cast<size_t>(CURL_READFUNC_ABORT));
    EXPECT_EQ(seek(), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(write(), 0u);
}

TEST_F(CallbackErrorTest, stopsAnUploadRatherThanEndingItsBody)
{
    server().onConnection().readHead().readToEnd();
    request().setURL(kx::String::fromUTF8(server().url()));
    request().setSendDataSource(kx::newObj<CThrowingSource>([] { throwError("read"); }).get());
    request().setHTTPMethod("PUT"); // in chunks: an end of the body would be the chunk of size 0
    EXPECT_EQ(curl_easy_perform(request().getEasyHandle()), CURLE_ABORTED_BY_CALLBACK);
    EXPECT_TRUE(received().ends_with("\r\n\r\n")) << received();
    EXPECT_EQ(received().find("\r\n0\r\n"), std::string::npos);
}

} // namespace
