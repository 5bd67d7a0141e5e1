// The example s3, run as a person runs it.
#include "tests/live/exampleRun.h"
#include "tests/support/CCephServer.h"
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

    std::string m_secret = s_store->secretAccessKey();
    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CCephServer> s_store;
};

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

TEST_F(S3ExampleTest, explainsFailures)
{
    const auto missing = s3({"get", "bucket/missing", (m_folder.path() / "fetched").string()});
    EXPECT_EQ(missing.exitStatus(), 1);
    EXPECT_EQ(missing.errors(), "s3: HTTP response code said error (response code: http 404)\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));

    const auto unread = s3({"put", "/nowhere/file", "bucket/k"});
    EXPECT_EQ(unread.errors(), "s3: The file '/nowhere/file' cannot be read.\n");

    m_secret = "wrong/secret";
    const auto refused = s3({"ls", "bucket"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_EQ(refused.errors(), "s3: Amazon S3 error: (SignatureDoesNotMatch)\n");
}

TEST_F(S3ExampleTest, explainsItsUse)
{
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{}, {"put", "one"}, {"sing", "a", "song"}, {"--colour", "red", "ls", "b"}}) {
        const auto result = s3(words);
        EXPECT_EQ(result.exitStatus(), 2);
        EXPECT_TRUE(result.errors().starts_with("Usage: s3 ")) << result.errors();
    }
}

TEST_F(S3ExampleTest, asksForCredentials)
{
    const auto result = live::run({"s3", "ls", "bucket"});
    EXPECT_EQ(result.errors(), "s3: The environment variable S3_ACCESS_KEY_ID is not set.\n");
}

} // namespace
