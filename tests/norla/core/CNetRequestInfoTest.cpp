// What a request tells of its last transfer.
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/core/CTransferInfo.h"
#include "tests/norla/core/CRequestFixture.h"

namespace {

using norla::CTransferInfo;
using norla::TransferPhase;

class CNetRequestInfoTest : public CRequestFixture {
protected:
    CTransferInfo info() { return request().getTransferInfo(); }

    void performInBackground()
    {
        norla::CAsyncNetRequestManager manager;
        request().setURL(kx::String::fromUTF8(server().url()));
        manager.addRequest(&request());
        while (!request().isAsyncDone()) {
            manager.waitForEvents(100);
            manager.handleEvents(nullptr);
        }
    }
};

TEST_F(CNetRequestInfoTest, isEmptyBeforeTheFirstTransfer)
{
    EXPECT_EQ(info().phase, TransferPhase::Unknown);
    EXPECT_EQ(info().url, "");
}

TEST_F(CNetRequestInfoTest, isThereAfterASuccess)
{
    answer(ok("hello"));
    performPath("/a");
    EXPECT_EQ(info().bytesDown, 5);
    EXPECT_EQ(info().url.toUTF8(), server().url("/a"));
    EXPECT_TRUE(info().times.firstByte);
}

TEST_F(CNetRequestInfoTest, isThereAfterAFailure)
{
    answer("HTTP/1.1 404 No\r\nContent-Length: 4\r\n\r\nhalf");
    EXPECT_TRUE(failureOf("/a"));
    EXPECT_EQ(info().bytesDown, 4);
    EXPECT_EQ(info().phase, TransferPhase::Receiving);
}

TEST_F(CNetRequestInfoTest, leavesTheErrorTextAlone)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf");
    performInBackground();
    const kx::String message = request().getErrorMessage();
    EXPECT_NE(message, "");
    EXPECT_EQ(info().bytesDown, 4);
    EXPECT_EQ(request().getErrorMessage(), message);
}

TEST_F(CNetRequestInfoTest, isThereInTheBackgroundBehindItsEnd)
{
    answer(ok("hello"));
    performInBackground();
    EXPECT_EQ(info().bytesDown, 5);
    EXPECT_EQ(info().remotePort, server().getPort());
    EXPECT_EQ(info().protocol, "http/1.1");
    EXPECT_FALSE(info().isConnectionReused);
    EXPECT_TRUE(info().times.connect);
}

TEST_F(CNetRequestInfoTest, isForgottenByAReset)
{
    answer(ok("hello"));
    performPath();
    request().reset();
    EXPECT_EQ(info().phase, TransferPhase::Unknown);
    EXPECT_EQ(info().bytesDown, 0);
    EXPECT_EQ(info().url, "");
}

TEST_F(CNetRequestInfoTest, startsAnewWithEachTransfer)
{
    answer(ok("hello")).readHead().send(ok(""));
    performPath("/a");
    performPath("/b");
    EXPECT_EQ(info().bytesDown, 0);
    EXPECT_TRUE(info().isConnectionReused);
    EXPECT_EQ(info().url.toUTF8(), server().url("/b"));
}

} // namespace
