// The example s3 with a store that answers as it likes.
#include "tests/live/exampleRun.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

namespace {

using support::CProcessRun;

/// `get` from a store that answers as it likes.
class S3ExampleAnswerTest : public testing::Test {
protected:
    /// @param status line and headers of an answer of which so much comes
    void answer(const std::string& head, const std::string& body, size_t length)
    {
        m_store.onConnection().readHead().send("HTTP/1.1 " + head
            + "\r\nConnection: close\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" + body);
    }
    void answer(const std::string& head, const std::string& body) { answer(head, body, body.size()); }

    CProcessRun run(std::vector<std::string> words)
    {
        words.insert(words.begin(), {"s3", "--endpoint", "127.0.0.1:" + std::to_string(m_store.getPort()), "--http"});
        return live::run(
            {.arguments = std::move(words), .environment = {"S3_ACCESS_KEY_ID=id", "S3_SECRET_ACCESS_KEY=secret"}});
    }

    CProcessRun get() { return run({"get", "bucket/key", file()}); }

    std::string file() const { return (m_folder.path() / "fetched").string(); }

    void expectFailure(const std::string& message)
    {
        const auto result = get();
        EXPECT_EQ(result.exitStatus(), 1);
        EXPECT_EQ(result.errors(), "s3: bucket/key: " + message + "\n");
        EXPECT_FALSE(std::filesystem::exists(file()));
    }

    support::CScriptedServer m_store;
    support::CTemporaryFolder m_folder;
};

TEST_F(S3ExampleAnswerTest, isTakenAsAWhole)
{
    answer("200 OK\r\nETag: \"1\"", "whole");
    EXPECT_EQ(get().errors(), "5 bytes fetched\n");
    EXPECT_EQ(live::contentOf(file()), "whole");
    EXPECT_TRUE(m_store.received(0).starts_with("GET /bucket/key HTTP/1.1\r\n"));
    EXPECT_EQ(m_store.received(0).find("\r\nRange:"), std::string::npos);
}

TEST_F(S3ExampleAnswerTest, isAskedForAgainFromABusyStore)
{
    answer("503 Slow Down", "<Error><Code>SlowDown</Code></Error>");
    answer("200 OK", "whole");
    EXPECT_EQ(get().errors(), "5 bytes fetched\n");
    EXPECT_EQ(live::contentOf(file()), "whole");
}

TEST_F(S3ExampleAnswerTest, isFetchedAnewWhenTheConnectionIsLost)
{
    answer("200 OK", "who", 5);
    answer("200 OK", "whole");
    EXPECT_EQ(get().errors(), "5 bytes fetched\n");
    EXPECT_EQ(live::contentOf(file()), "whole");
}

TEST_F(S3ExampleAnswerTest, isNotTakenForAPart)
{
    answer("206 Partial Content\r\nETag: \"1\"\r\nContent-Range: bytes 0-4/10", "whole");
    expectFailure("The store was asked for the object 'key' in the bucket 'bucket' and gave something else, another "
                  "answer: status 206, Content-Range 'bytes 0-4/10', Content-Length '5'.");
}

TEST_F(S3ExampleAnswerTest, isNotTakenWithOtherBytesThanTheStoreSpeaksOf)
{
    answer("200 OK\r\nETag: \"5d41402abc4b2a76b9719d911017c592\"", "whole"); // "hello"
    const auto result = get();
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_NE(result.errors().find("5d41402abc4b2a76b9719d911017c592"), std::string::npos) << result.errors();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
}

TEST_F(S3ExampleAnswerTest, isAskedForWithASignatureForTheRegion)
{
    answer("200 OK", "whole");
    run({"--region", "eu-west-1", "get", "bucket/key", file()});
    EXPECT_NE(m_store.received(0).find("/eu-west-1/s3/aws4_request"), std::string::npos) << m_store.received(0);
}

TEST_F(S3ExampleAnswerTest, explainsWhatIsRefused)
{
    answer("403 Forbidden", "<Error><Code>AccessDenied</Code><Message>No</Message></Error>");
    expectFailure("Amazon S3 error: No(AccessDenied)\n  403 Forbidden");
}

TEST_F(S3ExampleAnswerTest, tellsEachObjectThatIsNotRemoved)
{
    answer("200 OK",
        "<DeleteResult><Deleted><Key>a</Key></Deleted><Error><Key>b</Key><Code>AccessDenied</Code>"
        "<Message>Not yours</Message></Error><Error><Key>c</Key><Code>InternalError</Code></Error></DeleteResult>");
    const auto result = run({"rm", "bucket/a", "bucket/b", "bucket/c"});
    EXPECT_EQ(result.errors(),
        "s3: bucket/b: Not yours (AccessDenied)\ns3: bucket/c: (InternalError)\ns3: objects that were not removed: "
        "2\n");
    EXPECT_EQ(result.exitStatus(), 1);
}

TEST_F(S3ExampleAnswerTest, listsTheBucketsWhereNoneIsNamed)
{
    answer("200 OK",
        "<ListAllMyBucketsResult><Buckets>"
        "<Bucket><Name>one</Name><CreationDate>2026-11-21T08:49:37.000Z</CreationDate></Bucket>"
        "<Bucket><Name>two</Name></Bucket></Buckets></ListAllMyBucketsResult>");
    const auto result = run({"ls"});
    EXPECT_EQ(result.output(), "-\t2026-11-21T08:49:37.000Z\tone\n-\t-\ttwo\n");
    EXPECT_EQ(result.errors(), "");
    EXPECT_TRUE(m_store.received(0).starts_with("GET / HTTP/1.1\r\n"));
}

TEST_F(S3ExampleAnswerTest, tellsTheKindsOfVersions)
{
    const auto version = [](const std::string& id, const std::string& isLatest, const std::string& size) {
        return "<Key>k</Key><VersionId>" + id + "</VersionId><IsLatest>" + isLatest
            + "</IsLatest><LastModified>2026-11-21T08:49:37.000Z</LastModified>" + size;
    };
    answer("200 OK",
        "<ListVersionsResult><IsTruncated>false</IsTruncated><Version>" + version("v3", "true", "<Size>3</Size>")
            + "</Version><DeleteMarker>" + version("v2", "false", "") + "</DeleteMarker><Version>"
            + version("v1", "false", "<Size>1</Size>") + "</Version></ListVersionsResult>");
    EXPECT_EQ(run({"--versions", "ls", "bucket/k"}).output(),
        "3\t2026-11-21T08:49:37.000Z\tv3\tlatest\tk\n"
        "-\t2026-11-21T08:49:37.000Z\tv2\tremoved\tk\n"
        "1\t2026-11-21T08:49:37.000Z\tv1\tolder\tk\n");
    EXPECT_TRUE(m_store.received(0).starts_with("GET /bucket?versions&")) << m_store.received(0);
}

TEST_F(S3ExampleAnswerTest, asksForTheTagsOfAVersion)
{
    answer("200 OK",
        "<Tagging><TagSet><Tag><Key>a</Key><Value>1</Value></Tag><Tag><Key>b</Key><Value></Value></Tag></TagSet>"
        "</Tagging>");
    EXPECT_EQ(run({"--version-id", "v1", "tag", "bucket/k"}).output(), "a=1\nb=\n");
    EXPECT_TRUE(m_store.received(0).starts_with("GET /bucket/k?tagging&versionId=v1 HTTP/1.1\r\n"))
        << m_store.received(0);
}

TEST_F(S3ExampleAnswerTest, isNotAskedForWithoutTheVersionThatWasMeant)
{
    const auto result = run({"--version-id", "", "rm", "bucket/key"});
    EXPECT_EQ(result.exitStatus(), 2);
    EXPECT_TRUE(result.errors().starts_with("s3: option '--version-id' needs a value: ")) << result.errors();
    EXPECT_EQ(m_store.connectionCount(), 0U);
}

TEST_F(S3ExampleAnswerTest, explainsWhyTheBucketsAreNotListed)
{
    answer("403 Forbidden", "<Error><Code>AccessDenied</Code><Message>No</Message></Error>");
    const auto result = run({"ls"});
    EXPECT_EQ(result.errors(), "s3: buckets: Amazon S3 error: No(AccessDenied)\n  403 Forbidden\n");
    EXPECT_EQ(result.exitStatus(), 1);
}

} // namespace
