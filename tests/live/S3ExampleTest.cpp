// The example s3, run as a person runs it.
#include "tests/live/exampleRun.h"
#include "tests/support/CCephServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using support::CProcessRun;

class S3ExampleTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_store = std::make_unique<support::CCephServer>();
        s_store->makeBucket("bucket");
    }
    static void TearDownTestSuite() { s_store.reset(); }

    CProcessRun s3(std::vector<std::string> words, CProcessRun::Terminal terminal = CProcessRun::Terminal::None)
    {
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http"});
        return live::run({.arguments = std::move(words),
            .environment = {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + m_secret},
            .terminal = terminal});
    }

    /// The same without credentials in the environment.
    CProcessRun s3ByProfile(std::vector<std::string> words)
    {
        const auto file = m_folder.write("credentials",
            "[other]\naws_access_key_id = " + s_store->accessKeyId() + "\naws_secret_access_key = " + m_secret + "\n");
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http", "--profile", "other"});
        return live::run(
            {.arguments = std::move(words), .environment = {"AWS_SHARED_CREDENTIALS_FILE=" + file.string()}});
    }

    CProcessRun s3ToFullDisk(std::vector<std::string> words)
    {
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http"});
        return live::runRedirected(
            words, "> /dev/full", {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + m_secret});
    }

    /// The most memory that a run had which succeeds, in bytes.
    static long long peakMemoryOf(const std::vector<std::string>& words)
    {
        std::vector<std::string> command{"python3", "-c",
            "import resource, subprocess, sys\n"
            "subprocess.run(sys.argv[1:], check=True, stderr=subprocess.DEVNULL)\n"
            "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)",
            NORLA_EXAMPLES_DIR "/s3", "--endpoint", s_store->host(), "--http"};
        command.insert(command.end(), words.begin(), words.end());
        const CProcessRun result({.arguments = command,
            .package = "python3",
            .environment
            = {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + s_store->secretAccessKey()}});
        EXPECT_EQ(result.exitStatus(), 0) << result.errors();
        return 1024 * std::stoll("0" + result.output());
    }

    std::string m_secret = s_store->secretAccessKey();
    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CCephServer> s_store;
};

TEST_F(S3ExampleTest, makesAndRemovesABucket)
{
    EXPECT_EQ(s3({"mb", "another"}).errors(), "");
    EXPECT_EQ(s3({"ls", "another"}).exitStatus(), 0);
    EXPECT_EQ(s3({"rb", "another"}).errors(), "");
    EXPECT_EQ(s3({"ls", "another"}).exitStatus(), 1);
}

TEST_F(S3ExampleTest, lendsAnObjectByAURL)
{
    const auto file = m_folder.write("lent.txt", "lent").string();
    EXPECT_EQ(s3({"put", file, "bucket/lent"}).exitStatus(), 0);
    const std::string url = s3({"--expires", "60", "presign", "bucket/lent"}).output();
    ASSERT_TRUE(url.ends_with("\n"));
    EXPECT_EQ(live::run(std::vector<std::string>{"hello", url.substr(0, url.size() - 1)}).output(), "lent");
}

TEST_F(S3ExampleTest, givesAnObjectAnotherKey)
{
    const auto file = m_folder.write("moved.txt", "moved").string();
    EXPECT_EQ(s3({"put", file, "bucket/old"}).exitStatus(), 0);
    EXPECT_EQ(s3({"mv", "bucket/old", "new"}).errors(), "");
    EXPECT_EQ(s3({"stat", "bucket/old"}).exitStatus(), 1);
    EXPECT_EQ(s3({"stat", "bucket/new"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, keepsAnObjectThatIsToHaveItsOwnKey)
{
    const auto file = m_folder.write("same.txt", "same").string();
    EXPECT_EQ(s3({"put", file, "bucket/same"}).exitStatus(), 0);
    EXPECT_EQ(s3({"mv", "bucket/same", "same"}).exitStatus(), 2);
    EXPECT_EQ(s3({"stat", "bucket/same"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, takesTheCredentialsOfAProfile)
{
    const auto listed = s3ByProfile({"ls", "bucket"});
    EXPECT_EQ(listed.exitStatus(), 0) << listed.errors();
}

TEST_F(S3ExampleTest, worksOnObjects)
{
    const std::string content(9 << 20, 'c'); // two pieces
    const auto file = m_folder.write("file.txt", content).string();
    EXPECT_EQ(s3({"put", file, "bucket/a/one"}).errors(), std::to_string(content.size()) + " bytes stored\n");
    EXPECT_EQ(s3({"cp", "bucket/a/one", "a/two"}).exitStatus(), 0);
    EXPECT_EQ(s3({"put", file, "bucket/b"}).exitStatus(), 0);

    const std::string listing = s3({"--page", "1", "ls", "bucket/a/"}).output();
    const size_t second = listing.find('\n') + 1;
    EXPECT_TRUE(listing.starts_with(std::to_string(content.size()) + "\t20")) << listing;
    EXPECT_EQ(listing.substr(second - 7, 7), "\ta/one\n");
    EXPECT_TRUE(listing.ends_with("\ta/two\n")) << listing;

    const auto fetched = (m_folder.path() / "fetched").string();
    EXPECT_EQ(s3({"get", "bucket/a/two", fetched}).errors(), std::to_string(content.size()) + " bytes fetched\n");
    EXPECT_TRUE(live::contentOf(fetched) == content);
    EXPECT_FALSE(std::filesystem::exists(fetched + ".part"));

    EXPECT_TRUE(s3({"stat", "bucket/a/two"})
                    .output()
                    .starts_with("content-length: " + std::to_string(content.size()) + "\ncontent-type: "));
    EXPECT_EQ(s3({"rm", "bucket/a/two"}).exitStatus(), 0);
    EXPECT_EQ(s3({"stat", "bucket/a/two"}).exitStatus(), 1);
}

TEST_F(S3ExampleTest, showsItsProgressOnATerminal)
{
    const auto file = m_folder.write("file.txt", std::string(1 << 20, 'c')).string();
    const auto stored = s3({"put", file, "bucket/shown"}, CProcessRun::Terminal::Errors);
    EXPECT_NE(stored.errors().find("] 100 %"), std::string::npos) << stored.errors();
    const auto fetched
        = s3({"get", "bucket/shown", (m_folder.path() / "fetched").string()}, CProcessRun::Terminal::Errors);
    EXPECT_NE(fetched.errors().find("] 100 %"), std::string::npos) << fetched.errors();
}

TEST_F(S3ExampleTest, noticesThatItsOutputIsLost)
{
    s3({"put", m_folder.write("file", "content"), "bucket/lost"});
    for (const std::string command : {"ls", "stat"}) {
        const auto result = s3ToFullDisk({command, "bucket/lost"});
        EXPECT_EQ(result.errors(), "s3: standard output: No space left on device\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
    const auto file = s3({"get", "bucket/lost", "/dev/full"});
    EXPECT_EQ(file.errors(), "s3: The file '/dev/full' cannot be written: No space left on device.\n");
    EXPECT_EQ(file.exitStatus(), 3);
}

TEST_F(S3ExampleTest, showsNoControlCharactersOnATerminal)
{
    s3({"put", m_folder.write("file", "content"), "bucket/c1/\xC2\x9B"});
    EXPECT_TRUE(s3({"ls", "bucket/c1/"}, CProcessRun::Terminal::Output).output().ends_with("\tc1/\\x9b\n"));
    EXPECT_TRUE(s3({"ls", "bucket/c1/"}).output().ends_with("\tc1/\xC2\x9B\n"));
}

TEST_F(S3ExampleTest, explainsFailures)
{
    const auto missing = s3({"get", "bucket/missing", (m_folder.path() / "fetched").string()});
    EXPECT_EQ(missing.exitStatus(), 1);
    EXPECT_EQ(missing.errors(),
        "s3: bucket/missing: Amazon S3 error: The object does not exist(NoSuchKey)\n  404 Not Found\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));

    const auto unread = s3({"put", "/nowhere/file", "bucket/k"});
    EXPECT_EQ(unread.errors(), "s3: The file '/nowhere/file' cannot be read: No such file or directory.\n");
    EXPECT_EQ(unread.exitStatus(), 3);

    m_secret = "wrong/secret";
    const auto refused = s3({"ls", "bucket"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_EQ(refused.errors(), "s3: bucket: Amazon S3 error: (SignatureDoesNotMatch)\n  403 Forbidden\n");
}

TEST_F(S3ExampleTest, needsNoMoreMemoryForALargeObject)
{
    constexpr long long size = 64 << 20;
    const auto file = m_folder.write("file", "").string();
    const auto fetched = (m_folder.path() / "fetched").string();
    const std::vector<std::string> put{"put", file, "bucket/large"};
    const std::vector<std::string> get{"get", "bucket/large", fetched};
    std::filesystem::resize_file(file, 1);
    const long long putPeak = peakMemoryOf(put);
    const long long getPeak = peakMemoryOf(get);
    EXPECT_GT(putPeak, 0);
    std::filesystem::resize_file(file, size);
    EXPECT_LT(peakMemoryOf(put) - putPeak, size / 8);
    EXPECT_LT(peakMemoryOf(get) - getPeak, size / 8);
    EXPECT_EQ(std::filesystem::file_size(fetched), size);
}

/// `get` from a store that answers as it likes.
class S3ExampleAnswerTest : public testing::Test {
protected:
    static constexpr size_t size = 9 << 20; // two pieces
    static constexpr size_t firstSize = 8 << 20;

    /// @param status line and headers of an answer that has so many bytes of this letter
    void answer(const std::string& head, size_t length, char letter)
    {
        m_store.onConnection()
            .readHead()
            .send(
                "HTTP/1.1 " + head + "\r\nConnection: close\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n")
            .send(std::string(length, letter));
    }

    /// What every fetch begins with: the headers of the object, and its size.
    void answerHeads()
    {
        for (int i = 0; i < 2; ++i)
            m_store.onConnection().readHead().send(
                "HTTP/1.1 200 OK\r\nConnection: close\r\nETag: \"1\"\r\nContent-Length: " + std::to_string(size)
                + "\r\n\r\n");
    }

    static std::string part(size_t first, size_t last, size_t total = size)
    {
        return "206 Partial Content\r\nETag: \"1\"\r\nContent-Range: bytes " + std::to_string(first) + "-"
            + std::to_string(last) + "/" + std::to_string(total);
    }

    CProcessRun get()
    {
        return live::run({.arguments = {"s3", "--endpoint", "127.0.0.1:" + std::to_string(m_store.getPort()), "--http",
                              "get", "bucket/key", file()},
            .environment = {"S3_ACCESS_KEY_ID=id", "S3_SECRET_ACCESS_KEY=secret"}});
    }

    std::string file() const { return (m_folder.path() / "fetched").string(); }

    void expectFailure(const std::string& message)
    {
        const auto result = get();
        EXPECT_EQ(result.exitStatus(), 1);
        EXPECT_EQ(result.errors(), "s3: bucket/key: " + message + "\n");
        EXPECT_FALSE(std::filesystem::exists(file()));
    }

    static constexpr auto whole = "200 OK\r\nETag: \"1\"";

    support::CScriptedServer m_store;
    support::CTemporaryFolder m_folder;
};

TEST_F(S3ExampleAnswerTest, isTakenPieceByPiece)
{
    answerHeads();
    answer(part(0, firstSize - 1), firstSize, 'a');
    answer(part(firstSize, size - 1), size - firstSize, 'b');
    EXPECT_EQ(get().errors(), std::to_string(size) + " bytes fetched\n");
    EXPECT_TRUE(live::contentOf(file()) == std::string(firstSize, 'a') + std::string(size - firstSize, 'b'));
}

TEST_F(S3ExampleAnswerTest, isTakenAsAWholeFromAStoreThatIgnoresRanges)
{
    answerHeads();
    answer(whole, size, 'a');
    EXPECT_EQ(get().errors(), std::to_string(size) + " bytes fetched\n");
    EXPECT_TRUE(live::contentOf(file()) == std::string(size, 'a'));
    EXPECT_EQ(m_store.connectionCount(), 3u);
}

TEST_F(S3ExampleAnswerTest, isNotTakenAsAWholeBehindAPiece)
{
    answerHeads();
    answer(part(0, firstSize - 1), firstSize, 'a');
    answer(whole, size, 'a');
    expectFailure("The store was asked for the bytes 8388608-9437183 of 9437184 and gave something else: status 200, "
                  "Content-Range ''.");
}

TEST_F(S3ExampleAnswerTest, isNotTakenForAnotherPiece)
{
    for (const std::string& head :
        {part(1, firstSize), part(1, firstSize - 1), part(0, firstSize), part(0, firstSize - 1, size + 1),
            std::string("206 Partial Content\r\nETag: \"1\"\r\nContent-Range: items 0-8388607/9437184")}) {
        answerHeads();
        answer(head, firstSize, 'a');
        expectFailure("The store was asked for the bytes 0-8388607 of 9437184 and gave something else: status 206, "
                      "Content-Range '"
            + head.substr(head.rfind(": ") + 2) + "'.");
    }
}

TEST_F(S3ExampleAnswerTest, isNotTakenWithoutItsRange)
{
    answerHeads();
    answer("206 Partial Content\r\nETag: \"1\"", firstSize, 'a');
    expectFailure("The store was asked for the bytes 0-8388607 of 9437184 and gave something else: status 206, "
                  "Content-Range ''.");
}

TEST_F(S3ExampleAnswerTest, isNotTakenWithMoreOrLessThanItSays)
{
    answerHeads();
    answer(part(0, firstSize - 1), firstSize + 1, 'a');
    expectFailure("The store has sent more than it was asked for.");
    answerHeads();
    answer(part(0, firstSize - 1), firstSize - 1, 'a');
    expectFailure("The store has sent less than it was asked for.");
    answerHeads();
    answer(whole, size - 1, 'a');
    expectFailure("The store has sent less than it was asked for.");
}

TEST_F(S3ExampleAnswerTest, isNotTakenFromAnotherObjectOfThatName)
{
    answerHeads();
    answer("206 Partial Content\r\nETag: \"2\"\r\nContent-Range: bytes 0-8388607/9437184", firstSize, 'a');
    expectFailure("The object has changed while it was fetched.");
}

TEST_F(S3ExampleAnswerTest, explainsAPieceThatIsRefused)
{
    answerHeads();
    const std::string document = "<Error><Code>AccessDenied</Code><Message>No</Message></Error>";
    m_store.onConnection().readHead().send("HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Length: "
        + std::to_string(document.size()) + "\r\n\r\n" + document);
    expectFailure("Amazon S3 error: No(AccessDenied)\n  403 Forbidden");
}

} // namespace
