#include "norla/core/CFileSink.h"

#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <utility>
#include <vector>

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

TEST_F(CFileSinkTest, makesNoFileWhenItWasNotSet)
{
    answer(ok("the body"));
    const auto sink = setSink();
    request().setDefaultReceiveDataStream();
    performPath();
    EXPECT_EQ(support::messageOf([&sink] { sink->finish(); }),
        "The file '" + kx::String::fromUTF8((m_folder.path() / "file").native())
            + "' is not written: no transfer has had it for its sink (CNetRequest::setReceiveDataSink()).");
    EXPECT_FALSE(fs::exists(m_folder.path() / "file"));
}

TEST_F(CFileSinkTest, makesAnEmptyFileOfAnEmptyBody)
{
    answer(ok(""));
    const auto sink = setSink();
    performPath();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "");
}

TEST_F(CFileSinkTest, keepsWhatHasComeWhenItIsFinishedAfterAFailure)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf").close();
    const auto sink = setSink();
    EXPECT_TRUE(failureOf());
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "half");
}

TEST_F(CFileSinkTest, namesTheFileThatCannotBeMade)
{
    EXPECT_EQ(support::messageOf([this] { kx::newObj<CFileSink>(request(), "/nowhere/file"); }),
        "The file '/nowhere/file' cannot be written: No such file or directory.");
}

class CFileSinkOlderTest : public CFileSinkTest {
protected:
    CFileSinkOlderTest() { m_folder.write("file", "older "); }

    kx::P<CFileSink> setSink(CFileSink::Older older)
    {
        auto sink = kx::newObj<CFileSink>(
            request(), norla::CNetRequest::Path::fromBytes((m_folder.path() / "file").native()), older);
        request().setReceiveDataSink(sink.get());
        return sink;
    }

    /// What the file holds after this answer.
    std::string contentAfter(const std::string& bytes, CFileSink::Older older)
    {
        answer(bytes);
        const auto sink = setSink(older);
        performPath();
        sink->finish();
        return m_folder.read("file");
    }

    static std::string part(const std::string& body, const std::string& range)
    {
        return "HTTP/1.1 206 Partial Content\r\nContent-Length: " + std::to_string(body.size())
            + "\r\nContent-Range: " + range + "\r\n\r\n" + body;
    }

    /// The error that a resumed transfer ends with.
    kx::String resumeError(const std::string& bytes)
    {
        answer(bytes);
        setSink(CFileSink::Older::Resume);
        const auto error = failureOf();
        request().setDefaultReceiveDataStream(); // lets the sink go
        EXPECT_EQ(m_folder.read("file"), "older ");
        return error ? error->getMessage() : "(no error)";
    }
};

TEST_F(CFileSinkOlderTest, putsAnyBodyBehindAnOlderFile)
{
    EXPECT_EQ(contentAfter(ok("body"), CFileSink::Older::Append), "older body");
}

TEST_F(CFileSinkOlderTest, putsTheRestBehindTheBeginning)
{
    answer(part("rest", "bytes 6-9/10"));
    const auto sink = setSink(CFileSink::Older::Resume);
    request().setRange(sink->getFile().getLength(), -1);
    performPath();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "older rest");
    EXPECT_NE(received().find("\r\nRange: bytes=6-\r\n"), std::string::npos);
}

TEST_F(CFileSinkOlderTest, putsTheWholeInPlaceOfTheBeginning)
{
    EXPECT_EQ(contentAfter(ok("whole"), CFileSink::Older::Resume), "whole");
}

TEST_F(CFileSinkOlderTest, putsAWholeOfManyBlocksInPlaceOfTheBeginning)
{
    const std::string whole(1 << 20, 'x');
    EXPECT_EQ(contentAfter(ok(whole), CFileSink::Older::Resume), whole);
}

TEST_F(CFileSinkOlderTest, isEmptyWhenTheWholeIsByNow)
{
    EXPECT_EQ(contentAfter(ok(""), CFileSink::Older::Resume), "");
}

TEST_F(CFileSinkOlderTest, staysAsItIsWhenThereIsNoContentToSend)
{
    EXPECT_EQ(contentAfter("HTTP/1.1 204 No Content\r\n\r\n", CFileSink::Older::Resume), "older ");
}

TEST_F(CFileSinkOlderTest, staysAsItIsWhenOnlyTheHeadersAreAskedFor)
{
    request().setHTTPMethod("HEAD");
    EXPECT_EQ(contentAfter("HTTP/1.1 200 OK\r\n\r\n", CFileSink::Older::Resume), "older ");
}

TEST_F(CFileSinkOlderTest, staysAsItIsWhenAnEmptyBodyIsAppended)
{
    EXPECT_EQ(contentAfter(ok(""), CFileSink::Older::Append), "older ");
}

TEST_F(CFileSinkOlderTest, takesNoEmptyPartForTheRest)
{
    EXPECT_TRUE(resumeError(part("", "bytes 0-0/10")).endsWith("the server has sent the part 'bytes 0-0/10'."));
}

TEST_F(CFileSinkOlderTest, isEmptyAfterATransferInTheBackgroundOfAnEmptyWhole)
{
    answer(ok(""));
    const auto sink = setSink(CFileSink::Older::Resume);
    request().setURL(kx::String::fromUTF8(server().url()));
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    request().getAsyncDoneSignal()->reset();
    thread->addRequest(&request());
    ASSERT_TRUE(request().waitAsyncDone(20'000));
    thread->stop(true);
    request().checkAsyncResult();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "");
}

TEST_F(CFileSinkOlderTest, takesNoOtherPartForTheRest)
{
    const kx::String name = kx::String::fromUTF8((m_folder.path() / "file").native());
    EXPECT_EQ(resumeError(part("part", "bytes 5-8/10")),
        "The file '" + name + "' cannot go on behind its 6 bytes: the server has sent the part 'bytes 5-8/10'.");
    expectGoodTransfer();
}

TEST_F(CFileSinkOlderTest, takesNoPartInAnotherUnit)
{
    EXPECT_TRUE(resumeError(part("part", "lines 6-9/10")).endsWith("the server has sent the part 'lines 6-9/10'."));
}

TEST_F(CFileSinkOlderTest, takesNoPartThatDoesNotSayWhichItIs)
{
    EXPECT_TRUE(resumeError("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\n\r\npart")
                    .endsWith("the server has sent the part ''."));
}

TEST_F(CFileSinkOlderTest, leavesTheBeginningAsItWasWhenTheRestFails)
{
    answer("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\nContent-Range: bytes 6-9/10\r\n\r\nre").close();
    setSink(CFileSink::Older::Resume);
    EXPECT_TRUE(failureOf());
    request().setDefaultReceiveDataStream(); // lets the sink go
    EXPECT_EQ(m_folder.read("file"), "older ");
}

TEST_F(CFileSinkOlderTest, putsTheWholeInPlaceOfTheBeginningAfterAnAttemptWithTheRest)
{
    answer("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\nContent-Range: bytes 6-9/10\r\n\r\nre").close();
    answer(ok("whole"));
    const auto sink = setSink(CFileSink::Older::Resume);
    EXPECT_TRUE(failureOf());
    performPath();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "whole");
}

TEST_F(CFileSinkOlderTest, goesOnBehindTheBeginningAfterAnAttemptWithTheWhole)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\na long half").close();
    answer(part("rest", "bytes 6-9/10"));
    const auto sink = setSink(CFileSink::Older::Resume);
    EXPECT_TRUE(failureOf());
    performPath();
    sink->finish();
    EXPECT_EQ(m_folder.read("file"), "older rest");
}

TEST_F(CFileSinkOlderTest, isReplacedBehindARedirectWhateverBytesTheReasonOfTheStatusHas)
{
    const support::CLogRecorder log; // of what is left out of the lines
    for (const CFileSink::Older older : {CFileSink::Older::Replace, CFileSink::Older::Resume}) {
        useNewRequest();
        m_folder.write("file", "older ");
        answer("HTTP/1.1 302 Found\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n")
            .readHead()
            .send("HTTP/1.1 200 D\xE9j\xE0\r\nContent-Length: 5\r\n\r\nwhole");
        const auto sink = setSink(older);
        performPath();
        sink->finish();
        EXPECT_EQ(m_folder.read("file"), "whole");
    }
}

TEST_F(CFileSinkOlderTest, staysWhenTheAnswerBreaksOffInItsHeader)
{
    for (const CFileSink::Older older : {CFileSink::Older::Replace, CFileSink::Older::Resume}) {
        useNewRequest();
        answer("HTTP/1.1 200 OK\r\nServer: x\r\nConten").close();
        setSink(older);
        const auto error = failureOf();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getCode(), CURLE_PARTIAL_FILE);
        request().setDefaultReceiveDataStream(); // lets the sink go
        EXPECT_EQ(m_folder.read("file"), "older ");
    }
}

TEST_F(CFileSinkOlderTest, staysWhenTheServersRefusalBreaksOffInItsHeader)
{
    answer("HTTP/1.1 404 Not Found\r\nServer: x\r\nConten").close();
    setSink(CFileSink::Older::Replace);
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("responseCode"), "404");
}

TEST_F(CFileSinkTest, leavesAnAnswerThatBreaksOffInItsHeaderToOtherSinks)
{
    answer("HTTP/1.1 200 OK\r\nServer: x\r\nConten").close();
    setSink();
    request().setDefaultReceiveDataStream();
    EXPECT_FALSE(failureOf());
}

TEST_F(CFileSinkOlderTest, takesNoLessThanTheRest)
{
    const kx::String start
        = "The file '" + kx::String::fromUTF8((m_folder.path() / "file").native()) + "' is not whole with its ";
    const std::vector<std::pair<std::string, kx::String>> cases
        = {{part("67", "bytes 6-7/100"), "8 bytes: the server has sent the part 'bytes 6-7/100'."},
            {part("67", "bytes 6-9/10"), "8 bytes: the server has sent the part 'bytes 6-9/10'."},
            {part("67", "bytes 6-9/*"), "8 bytes: the server has sent the part 'bytes 6-9/*'."},
            {part("6789", "bytes 6-7/8"), "10 bytes: the server has sent the part 'bytes 6-7/8'."}};
    for (const auto& [bytes, end] : cases) {
        useNewRequest();
        EXPECT_EQ(resumeError(bytes), start + end);
    }
}

TEST_F(CFileSinkOlderTest, takesTheRestOfAResourceWhoseSizeTheServerDoesNotKnow)
{
    EXPECT_EQ(contentAfter(part("67", "bytes 6-7/*"), CFileSink::Older::Resume), "older 67");
}

TEST_F(CFileSinkTest, namesTheFileThatTakesNoMore)
{
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit previous{};
    getrlimit(RLIMIT_FSIZE, &previous);
    const rlimit limit{100'000, previous.rlim_max};
    answer(ok(std::string(1 << 20, 'x')));
    setSink();
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto error = failureOf();
    setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "The file '" + kx::String::fromUTF8((m_folder.path() / "file").native())
            + "' cannot be written: File too large.");
    EXPECT_TRUE(isEmptyFolder());
}

} // namespace
