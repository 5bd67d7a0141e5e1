#include "norla/core/CFileSink.h"

#include "norla/async/CAsyncNetRequestManager.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using norla::CFileSink;

class CFileSinkTest : public CRequestFixture {
protected:
    kx::P<CFileSink> setSink()
    {
        auto sink = kx::newObj<CFileSink>(
            request(), norla::CNetRequest::Path::fromBytes((m_folder.path() / "file").native()));
        request().setReceiveDataSink(sink.get());
        return sink;
    }

    bool isEmptyFolder() const { return fs::is_empty(m_folder.path()); }

    const support::CTemporaryFolder m_folder;
};

TEST_F(CFileSinkTest, givesTheFileItsNameWhenItIsFinished)
{
    answer(ok("the body"));
    const auto sink = setSink();
    performPath();
    EXPECT_FALSE(fs::exists(m_folder.path() / "file"));
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "the body");
    EXPECT_EQ(sink->getFile().getLength(), 8);
}

TEST_F(CFileSinkTest, leavesNothingOfATransferThatFails)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf").close();
    setSink();
    EXPECT_TRUE(failureOf());
    request().setDefaultReceiveDataStream(); // lets the sink go
    EXPECT_TRUE(isEmptyFolder());
}

TEST_F(CFileSinkTest, beginsAnewWhenTheTransferIsPerformedAgain)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\na long half").close();
    answer(ok("whole"));
    const auto sink = setSink();
    EXPECT_TRUE(failureOf());
    performPath();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "whole");
}

TEST_F(CFileSinkTest, beginsAnewInTheBackground)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\na long half").close();
    answer(ok("whole"));
    const auto sink = setSink();
    EXPECT_TRUE(failureOf());
    const auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    manager->addRequest(&request());
    while (!request().isAsyncDone()) {
        manager->waitForEvents(100);
        manager->handleEvents(nullptr);
    }
    request().checkAsyncResult();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "whole");
}

TEST_F(CFileSinkTest, leavesTheServersExplanationToTheError)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nContent-Length: 12\r\n\r\nno such page");
    const auto sink = setSink();
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("serverMessage"), "no such page");
    EXPECT_EQ(sink->getFile().getLength(), 0);
}

TEST_F(CFileSinkTest, takesABodyOfTheLastStatusOfSuccess)
{
    answer("HTTP/1.1 299 Fine\r\nContent-Length: 4\r\n\r\nbody");
    const auto sink = setSink();
    performPath();
    EXPECT_EQ(sink->getFile().getLength(), 4);
}

TEST_F(CFileSinkTest, leavesTheBodyOfARedirectOut)
{
    answer("HTTP/1.1 300 Choose\r\nContent-Length: 4\r\n\r\nbody");
    const auto sink = setSink();
    EXPECT_TRUE(failureOf());
    EXPECT_EQ(sink->getFile().getLength(), 0);
}

TEST_F(CFileSinkTest, keepsNoMoreThanTheBeginningOfAnExplanation)
{
    answer("HTTP/1.1 500 No\r\nContent-Length: 100000\r\n\r\n" + std::string(100'000, 'e'));
    setSink();
    EXPECT_TRUE(failureOf());
    EXPECT_EQ(body().size(), 65536U);
}

TEST_F(CFileSinkTest, endsTheTransferWhenTheFileTakesNoMore)
{
    answer(ok("the body"));
    const auto sink = setSink();
    sink->getFile().finish();
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(
        error->getMessage(), "The file '" + kx::String::fromUTF8((m_folder.path() / "file").native()) + "' is closed.");
    expectGoodTransfer();
}

TEST_F(CFileSinkTest, namesTheFileThatCannotBeMade)
{
    EXPECT_EQ(support::messageOf([this] { kx::newObj<CFileSink>(request(), "/nowhere/file"); }),
        "The file '/nowhere/file' cannot be written: No such file or directory.");
}

} // namespace
