// What an application throws inside a callback of a transfer in the background.
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/norla/async/CAsyncFixture.h"
#include "tests/norla/core/failingCallbacks.h"

#include <tuple>

namespace {

using Row = std::tuple<FailingPlace, CThrown>;

std::string nameOfRow(const testing::TestParamInfo<Row>& row)
{
    return std::string(nameOf(std::get<0>(row.param))) + "_" + std::get<1>(row.param).name;
}

class AsyncCallbackErrorTest : public CAsyncFixture, public testing::WithParamInterface<Row> {
protected:
    /// A request of which a callback throws, and a server that lets it come so far.
    Request failingRequest()
    {
        const auto& [place, thrown] = GetParam();
        auto& script = server().onConnection().readHead();
        if (place == FailingPlace::Sink)
            script.send(ok("x"));
        else if (place == FailingPlace::Seek)
            script.readBytes(8).send(
                "HTTP/1.1 307 Temporary Redirect\r\nLocation: /target\r\nContent-Length: 0\r\n\r\n");
        else
            script.readToEnd();
        auto request = newRequest();
        request->setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 1);
        failAt(place, *request, thrown.action);
        return request;
    }

    static void expectResult(const Request& request)
    {
        expectThrown(std::get<1>(GetParam()), [&request] { request->checkAsyncResult(); });
    }
};

TEST_P(AsyncCallbackErrorTest, isTheResultOfATransferOfAManager)
{
    const auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    const auto request = failingRequest();
    manager->addRequest(request.get());
    EXPECT_TRUE(waitUntil([&manager, &request] {
        manager->waitForEvents(10);
        manager->handleEvents(nullptr);
        return request->isAsyncDone();
    }));
    expectResult(request);
}

TEST_P(AsyncCallbackErrorTest, isTheResultOfATransferOfAThread)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    const auto request = failingRequest();
    thread->addRequest(request.get());
    thread->start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    expectResult(request);
    expectResult(request); // as often as somebody asks
}

TEST_P(AsyncCallbackErrorTest, isToldToTheListener)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    const auto request = failingRequest();
    std::atomic<bool> told{false};
    request->setDoneListener(kx::newObj<CActionListener>([&told](norla::CNetRequest*, const kx::CError* error) {
        EXPECT_NE(error, nullptr);
        if (error)
            std::get<1>(GetParam()).expect(*error);
        told = true;
    }).get());
    thread->addRequest(request.get());
    thread->start();
    EXPECT_TRUE(waitUntil([&told] { return told.load(); }));
    thread->stop(true);
}

INSTANTIATE_TEST_SUITE_P(All, AsyncCallbackErrorTest,
    testing::Combine(
        testing::Values(FailingPlace::Sink, FailingPlace::Read, FailingPlace::Seek), testing::ValuesIn(thrownThings)),
    nameOfRow);

} // namespace
