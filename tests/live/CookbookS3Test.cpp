// The recipes of docs/cookbook.md for stores against a real one.
#include "docs/cookbook/recipes.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/support/CCephServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/stringOf.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using support::stringOf;

namespace {

class CookbookS3Test : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_store = std::make_unique<support::CCephServer>();
        s_store->makeBucket("bucket");
    }
    static void TearDownTestSuite() { s_store.reset(); }

    static kx::P<norla::CS3Client> open(const std::string& host)
    {
        const auto credentials = kx::newObj<norla::CS3StaticCredentials>(
            norla::CS3Credentials{.accessKeyId = stringOf(s_store->accessKeyId()),
                .secretAccessKey = stringOf(s_store->secretAccessKey()),
                .sessionToken = {},
                .expiry = {}});
        return openS3(norla::CS3Endpoint::ceph(stringOf(host), false), credentials.get());
    }

    Path file(const std::string& name) const { return Path::fromBytes((m_folder.path() / name).string()); }

    void store(const std::string& name, const std::string& content)
    {
        m_folder.write("stored", content);
        storeInS3(*m_client, "bucket", stringOf(name), file("stored"), {});
    }

    const kx::P<norla::CS3Client> m_client = open(s_store->host());
    const support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CCephServer> s_store;
};

TEST_F(CookbookS3Test, storesAFileAndFetchesIt)
{
    const std::string content = std::string(8 << 20, 'a') + "end"; // two parts
    store("large", content);
    fetchFromS3(*m_client, "bucket", "large", file("fetched"));
    EXPECT_TRUE(m_folder.read("fetched") == content);
}

TEST_F(CookbookS3Test, tellsHowFarAFileIs)
{
    m_folder.write("note", "0123456789");
    std::vector<std::pair<long long, long long>> reports;
    storeInS3(*m_client, "bucket", "note", file("note"),
        [&reports](long long bytes, long long total) { reports.emplace_back(bytes, total); });
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back(), std::make_pair(10LL, 10LL));
}

TEST_F(CookbookS3Test, goesOnWithAnObjectWhereTheConnectionWasLost)
{
    const std::string content = support::distinctBytes(200'000);
    const std::string end = content.substr(100'000 - (64 << 10)); // 64 KiB are compared
    const std::string head = "\r\nConnection: close\r\nETag: \"v1\"\r\nContent-Length: ";
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK" + head + "200000\r\n\r\n" + content.substr(0, 100'000));
    server.onConnection().readHead().send("HTTP/1.1 206 Partial Content" + head + std::to_string(end.size())
        + "\r\nContent-Range: bytes " + std::to_string(content.size() - end.size()) + "-199999/200000\r\n\r\n" + end);
    fetchFromS3(*open("127.0.0.1:" + std::to_string(server.getPort())), "bucket", "large", file("fetched"));
    EXPECT_TRUE(m_folder.read("fetched") == content);
    EXPECT_NE(server.received(1).find("\r\nRange: bytes=34464-\r\n"), std::string::npos) << server.received(1);
}

TEST_F(CookbookS3Test, keepsAnOlderFileWhenThereIsNoObject)
{
    m_folder.write("fetched", "older content");
    try {
        fetchFromS3(*m_client, "bucket", "never", file("fetched"));
        ADD_FAILURE();
    } catch (const norla::CS3Error& error) {
        EXPECT_EQ(error.getS3Code(), "NoSuchKey");
    }
    EXPECT_EQ(m_folder.read("fetched"), "older content");
}

TEST_F(CookbookS3Test, listsAFolder)
{
    for (const std::string name : {"photos/", "photos/cat", "photos/2026/dog", "photos/2026/hen", "photos2"})
        store(name, "content");
    EXPECT_EQ(listS3Folder(*m_client, "bucket", "photos/"), (kx::TArray<kx::String>{"2026/", "cat"}));
}

TEST_F(CookbookS3Test, removesAFolder)
{
    for (const std::string name : {"old/", "old/cat", "old/2026/dog", "older"})
        store(name, "content");
    EXPECT_TRUE(removeS3Folder(*m_client, "bucket", "old/").empty());
    EXPECT_EQ(listS3Folder(*m_client, "bucket", "old"), (kx::TArray<kx::String>{"er"}));
}

TEST_F(CookbookS3Test, sharesAnObject)
{
    store("shared", "for all");
    EXPECT_EQ(getText(shareS3Object(*m_client, "bucket", "shared")), "for all");
}

} // namespace
