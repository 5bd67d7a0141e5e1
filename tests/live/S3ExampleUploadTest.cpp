// The example s3 with large files and with signals.
#include "norla/s3/CS3UploadEnum.h"
#include "tests/live/CTerminalRun.h"
#include "tests/live/S3ExampleSession.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/systemError.h"

#include <chrono>
#include <csignal>
#include <future>

namespace {

class S3ExampleUploadTest : public live::S3ExampleSession {
protected:
    std::string largeFile(long long size) const
    {
        auto file = m_folder.write("large", "").string();
        std::filesystem::resize_file(file, static_cast<std::uintmax_t>(size));
        return file;
    }

    static int uploadCount()
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        const auto store = client();
        norla::CS3UploadEnum uploads(store.get(), request.get(), "bucket");
        int count = 0;
        while (uploads.next())
            ++count;
        return count;
    }
};

TEST_F(S3ExampleUploadTest, storesALargeFileByParts)
{
    const std::string content = std::string(5 << 20, 'a') + std::string(5 << 20, 'b') + "end";
    const auto file = m_folder.write("file", content).string();
    EXPECT_EQ(
        s3({"--part", "5", "put", file, "bucket/parts"}).errors(), std::to_string(content.size()) + " bytes stored\n");
    EXPECT_NE(s3({"stat", "bucket/parts"}).output().find("-3\"\n"), std::string::npos);
    const auto fetched = (m_folder.path() / "fetched").string();
    s3({"get", "bucket/parts", fetched});
    EXPECT_TRUE(live::contentOf(fetched) == content);
}

TEST_F(S3ExampleUploadTest, storesASmallFileAtOnce)
{
    s3({"put", m_folder.write("file", std::string(8 << 20, 'a')), "bucket/small"});
    EXPECT_EQ(s3({"stat", "bucket/small"}).output().find("-1\"\n"), std::string::npos);
}

TEST_F(S3ExampleUploadTest, needsNoMoreMemoryForALargeObject)
{
    constexpr long long size = 128 << 20;
    const std::vector<std::string> put{"--part", "32", "put", largeFile(1), "bucket/large"};
    const auto fetched = (m_folder.path() / "fetched").string();
    const std::vector<std::string> get{"get", "bucket/large", fetched};
    const long long putPeak = peakMemoryOf(put);
    const long long getPeak = peakMemoryOf(get);
    EXPECT_GT(putPeak, 0);
    largeFile(size);
    EXPECT_LT(peakMemoryOf(put) - putPeak, size * 3 / 4); // one part, and one that is about to go
    EXPECT_LT(peakMemoryOf(get) - getPeak, size / 8);
    EXPECT_EQ(std::filesystem::file_size(fetched), size);
}

/// With the number of a signal, which ends the program while it uploads.
class S3ExampleSignalTest : public S3ExampleUploadTest, public testing::WithParamInterface<int> {
    const live::CSignalDisposition m_disposition{GetParam(), SIG_DFL};
};

TEST_P(S3ExampleSignalTest, leavesNoUploadByParts)
{
    live::CTerminalRun run({"s3", "--http", "--endpoint", store().host(), "put", largeFile(1LL << 30), "bucket/ended"},
        {"S3_ACCESS_KEY_ID=" + store().accessKeyId(), "S3_SECRET_ACCESS_KEY=" + m_secret});
    run.waitFor("  0 %");
    run.sendSignal(GetParam());
    EXPECT_EQ(run.waitForEnd(), 128 + GetParam());
    EXPECT_NE(
        run.shown().find(
            "\r\ns3: bucket/ended: Operation was aborted by an application callback: the upload was cancelled\r\n"),
        std::string::npos)
        << run.shown();
    EXPECT_EQ(uploadCount(), 0);
    EXPECT_EQ(s3({"stat", "bucket/ended"}).exitStatus(), 1);
}

INSTANTIATE_TEST_SUITE_P(All, S3ExampleSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP),
    [](const testing::TestParamInfo<int>& row) { return std::string(sigabbrev_np(row.param)); });

/// An upload to a store that stands still.
class S3ExampleStallTest : public testing::Test {
protected:
    S3ExampleStallTest()
    {
        const std::string document = "<InitiateMultipartUploadResult><Bucket>bucket</Bucket><Key>key</Key>"
                                     "<UploadId>the-id</UploadId></InitiateMultipartUploadResult>";
        m_store.onConnection().readHead().send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: "
            + std::to_string(document.size()) + "\r\n\r\n" + document);
        for (int i = 0; i < 2; ++i)
            m_store.onConnection().readHead().stall();
    }

    void start()
    {
        const auto file = m_folder.write("file", std::string(6 << 20, 'a')).string();
        const auto settings = live::prepared(
            {.arguments = {"s3", "--http", "--endpoint", "127.0.0.1:" + std::to_string(m_store.getPort()), "--part",
                 "5", "put", file, "bucket/key"},
                .environment = {"S3_ACCESS_KEY_ID=id", "S3_SECRET_ACCESS_KEY=secret"}});
        m_process = std::make_unique<support::CChildProcess>(
            support::CChildProcess::CSettings{.arguments = settings.arguments, .environment = settings.environment});
    }

    /// Blocks until the store has the head of a request on that connection.
    void waitForRequest(size_t connection)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (m_store.received(connection).find("\r\n\r\n") == std::string::npos) {
            if (m_process->waitForEnd(std::chrono::milliseconds(5)) || std::chrono::steady_clock::now() > limit)
                throw std::runtime_error("the store is not asked");
        }
    }

    void interrupt() { support::checked(kill(m_process->getPid(), SIGINT), "kill"); }

    int waitForEnd() { return m_process->waitForEnd(std::chrono::seconds(10)) ? *m_process->exitStatus() : -1; }

    support::CScriptedServer m_store;

private:
    const live::CSignalDisposition m_disposition{SIGINT, SIG_DFL};
    support::CTemporaryFolder m_folder;
    std::unique_ptr<support::CChildProcess> m_process;
};

TEST_F(S3ExampleStallTest, isAbortedByASignal)
{
    m_store.onConnection().readHead().send("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    start();
    waitForRequest(1);
    waitForRequest(2);
    interrupt();
    EXPECT_EQ(waitForEnd(), 128 + SIGINT);
    EXPECT_TRUE(m_store.received(3).starts_with("DELETE /bucket/key?uploadId=the-id HTTP/1.1\r\n"))
        << m_store.received(3);
}

TEST_F(S3ExampleStallTest, endsAtOnceByASecondSignal)
{
    m_store.onConnection().readHead().stall();
    start();
    waitForRequest(1);
    waitForRequest(2);
    interrupt();
    waitForRequest(3); // the abort, which nobody answers
    interrupt();
    EXPECT_EQ(waitForEnd(), 128 + SIGINT);
}

TEST(S3ExampleMoveTest, keepsTheObjectWhenASignalCameBeforeItsCopyWasThere)
{
    const live::CSignalDisposition disposition{SIGINT, SIG_DFL};
    const std::string document = "<CopyObjectResult><ETag>e</ETag></CopyObjectResult>";
    support::CScriptedServer store;
    std::promise<void> signalled;
    const std::shared_future<void> gate = signalled.get_future().share();
    store.onConnection().readHead().send(
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 5\r\nETag: e\r\n\r\n");
    store.onConnection().readHead().waitFor(gate).send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: "
        + std::to_string(document.size()) + "\r\n\r\n" + document);
    store.onConnection().readHead().send("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    live::CTerminalRun run({"s3", "--http", "--endpoint", "127.0.0.1:" + std::to_string(store.getPort()), "mv",
                               "bucket/old", "bucket/new"},
        {"S3_ACCESS_KEY_ID=id", "S3_SECRET_ACCESS_KEY=secret"});
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (store.received(1).find("\r\n\r\n") == std::string::npos && std::chrono::steady_clock::now() < limit)
        gate.wait_for(std::chrono::milliseconds(1));
    run.sendSignal(SIGINT);
    run.waitFor("s3: cancelling");
    signalled.set_value();
    EXPECT_EQ(run.waitForEnd(), 128 + SIGINT);
    EXPECT_NE(run.shown().find("\r\ns3: bucket/old: it was copied and is not removed: a signal has come\r\n"),
        std::string::npos)
        << run.shown();
    EXPECT_EQ(store.connectionCount(), 2U);
}

} // namespace
