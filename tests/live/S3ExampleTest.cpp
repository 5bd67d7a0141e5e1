// The example s3 with a real store.
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3Objects.h"
#include "tests/live/S3ExampleSession.h"

#include <sstream>

namespace {

using support::CProcessRun;

class S3ExampleTest : public live::S3ExampleSession {};

TEST_F(S3ExampleTest, makesAndRemovesABucket)
{
    EXPECT_EQ(s3({"mb", "another"}).errors(), "");
    EXPECT_EQ(s3({"ls", "another"}).exitStatus(), 0);
    EXPECT_EQ(s3({"rb", "another"}).errors(), "");
    EXPECT_EQ(s3({"ls", "another"}).exitStatus(), 1);
}

TEST_F(S3ExampleTest, listsTheBuckets)
{
    const std::string listing = s3({"ls"}).output();
    EXPECT_TRUE(listing.starts_with("-\t20")) << listing;
    EXPECT_NE(listing.find("Z\tbucket\n"), std::string::npos) << listing;
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
    EXPECT_EQ(s3({"mv", "bucket/old", "bucket/new"}).errors(), "");
    EXPECT_EQ(s3({"stat", "bucket/old"}).exitStatus(), 1);
    EXPECT_EQ(s3({"stat", "bucket/new"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, keepsAnObjectThatIsToHaveItsOwnKey)
{
    const auto file = m_folder.write("same.txt", "same").string();
    EXPECT_EQ(s3({"put", file, "bucket/same"}).exitStatus(), 0);
    EXPECT_EQ(s3({"mv", "bucket/same", "bucket/same"}).exitStatus(), 2);
    EXPECT_EQ(s3({"stat", "bucket/same"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, takesTheCredentialsOfAProfile)
{
    const auto listed = s3ByProfile({"ls", "bucket"});
    EXPECT_EQ(listed.exitStatus(), 0) << listed.errors();
}

TEST_F(S3ExampleTest, worksOnObjects)
{
    const std::string content(9 << 20, 'c'); // two parts
    const auto file = m_folder.write("file.txt", content).string();
    EXPECT_EQ(s3({"put", file, "bucket/a/one"}).errors(), std::to_string(content.size()) + " bytes stored\n");
    EXPECT_EQ(s3({"cp", "bucket/a/one", "bucket/a/two"}).exitStatus(), 0);
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
    for (const int size : {1 << 20, 9 << 20}) { // at once, and by parts
        const auto file = m_folder.write("file.txt", std::string(static_cast<size_t>(size), 'c')).string();
        const auto stored = s3({"put", file, "bucket/shown"}, CProcessRun::Terminal::Errors);
        EXPECT_TRUE(stored.errors().ends_with("] 100 %\n" + std::to_string(size) + " bytes stored\n"))
            << stored.errors();
        const auto fetched
            = s3({"get", "bucket/shown", (m_folder.path() / "fetched").string()}, CProcessRun::Terminal::Errors);
        EXPECT_TRUE(fetched.errors().ends_with("] 100 %\n" + std::to_string(size) + " bytes fetched\n"))
            << fetched.errors();
    }
}

TEST_F(S3ExampleTest, copiesToAnotherBucket)
{
    s3({"mb", "target"});
    s3({"put", m_folder.write("file", "copied"), "bucket/source"});
    EXPECT_EQ(s3({"cp", "bucket/source", "target/a copy"}).errors(), "");
    EXPECT_EQ(s3({"get", "target/a copy", (m_folder.path() / "fetched").string()}).errors(), "6 bytes fetched\n");
    EXPECT_EQ(s3({"mv", "target/a copy", "bucket/back"}).errors(), "");
    EXPECT_EQ(s3({"ls", "target"}).output(), "");
    EXPECT_EQ(s3({"stat", "bucket/back"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, wantsABucketForTheCopyToo)
{
    s3({"put", m_folder.write("file", "copied"), "bucket/source"});
    for (const std::string command : {"cp", "mv"}) {
        const auto copied = s3({command, "bucket/source", "bucket"});
        EXPECT_EQ(copied.exitStatus(), 2);
        EXPECT_EQ(copied.errors(), "s3: KEY is missing: 'bucket'\nTry 's3 --help'.\n");
    }
    EXPECT_EQ(s3({"stat", "bucket/source"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, copiesByParts)
{
    const auto file = m_folder.write("file", std::string(11 << 20, 'p')).string();
    s3({"put", file, "bucket/whole"});
    const auto copied = s3({"--part", "5", "cp", "bucket/whole", "bucket/parts"}, CProcessRun::Terminal::Errors);
    EXPECT_TRUE(copied.errors().ends_with("] 100 %\n")) << copied.errors();
    EXPECT_NE(s3({"stat", "bucket/parts"}).output().find("-3\"\n"), std::string::npos);
}

TEST_F(S3ExampleTest, listsFolders)
{
    const auto file = m_folder.write("file", "content").string();
    for (const std::string key : {"f/a", "f/b/1", "f/b/2", "f/c"})
        s3({"put", file, "bucket/" + key});
    const std::string listing = s3({"--folders", "ls", "bucket/f/"}).output();
    EXPECT_TRUE(listing.starts_with("7\t20")) << listing;
    EXPECT_NE(listing.find("\tf/a\n-\t-\tf/b/\n7\t20"), std::string::npos) << listing;
    EXPECT_TRUE(listing.ends_with("\tf/c\n")) << listing;
}

TEST_F(S3ExampleTest, removesSeveralObjects)
{
    const auto file = m_folder.write("file", "content").string();
    for (const std::string key : {"r1", "r2", "r3"})
        s3({"put", file, "bucket/" + key});
    const auto removed = s3({"rm", "bucket/r1", "bucket/r3", "bucket/never"});
    EXPECT_EQ(removed.errors(), "");
    EXPECT_EQ(removed.exitStatus(), 0);
    const std::string listing = s3({"ls", "bucket/r"}).output();
    EXPECT_TRUE(listing.ends_with("\tr2\n")) << listing;
    EXPECT_EQ(listing.find('\n'), listing.size() - 1) << listing;
}

TEST_F(S3ExampleTest, removesWhatBeginsSo)
{
    const auto file = m_folder.write("file", "content").string();
    for (const std::string key : {"tree/a", "tree/b/c", "trees"})
        s3({"put", file, "bucket/" + key});
    EXPECT_EQ(s3({"--recursive", "--page", "1", "rm", "bucket/tree/"}).errors(), "objects removed: 2\n");
    EXPECT_EQ(s3({"ls", "bucket/tree/"}).output(), "");
    EXPECT_EQ(s3({"stat", "bucket/trees"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, removesNoBucketFullOfObjectsUnasked)
{
    s3({"put", m_folder.write("file", "content"), "bucket/kept"});
    EXPECT_EQ(s3({"rm", "bucket"}).exitStatus(), 2);
    EXPECT_EQ(s3({"stat", "bucket/kept"}).exitStatus(), 0);
}

TEST_F(S3ExampleTest, showsMetadata)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto store = client();
    norla::CS3Objects(store.get(), request.get())
        .put("bucket", "noted", "text",
            {.contentType = "text/plain", .contentLanguage = "eo", .metadata = {{"author", L"Zo\xeb"}}});
    const std::string shown = s3({"stat", "bucket/noted"}).output();
    EXPECT_TRUE(shown.starts_with("content-length: 4\ncontent-type: text/plain\nlast-modified: ")) << shown;
    EXPECT_NE(shown.find("\ncontent-language: eo\n"), std::string::npos) << shown;
    EXPECT_TRUE(shown.ends_with("\nx-amz-meta-author: Zo\xC3\xAB\n")) << shown;
}

TEST_F(S3ExampleTest, knowsVersions)
{
    s3({"mb", "versions"});
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto store = client();
    norla::CS3Buckets(store.get(), request.get()).setVersioning("versions", norla::CS3Buckets::Versioning::Enabled);
    const auto first = norla::CS3Objects(store.get(), request.get()).put("versions", "key", "first").versionId.toUTF8();
    s3({"put", m_folder.write("file", "second one"), "versions/key"});

    const auto fetched = (m_folder.path() / "fetched").string();
    EXPECT_EQ(s3({"--version-id", first, "get", "versions/key", fetched}).errors(), "5 bytes fetched\n");
    const std::string shown = s3({"--version-id", first, "stat", "versions/key"}).output();
    EXPECT_NE(shown.find("\nx-amz-version-id: " + first + "\n"), std::string::npos) << shown;
    EXPECT_EQ(s3({"--version-id", first, "cp", "versions/key", "versions/copy"}).errors(), "");
    EXPECT_TRUE(s3({"stat", "versions/copy"}).output().starts_with("content-length: 5\n"));
    EXPECT_EQ(s3({"--version-id", first, "rm", "versions/key"}).errors(), "");
    EXPECT_EQ(s3({"--version-id", first, "stat", "versions/key"}).exitStatus(), 1);
    EXPECT_TRUE(s3({"stat", "versions/key"}).output().starts_with("content-length: 10\n"));
}

TEST_F(S3ExampleTest, listsVersions)
{
    s3({"mb", "listed"});
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto store = client();
    norla::CS3Buckets(store.get(), request.get()).setVersioning("listed", norla::CS3Buckets::Versioning::Enabled);
    s3({"put", m_folder.write("file", "first"), "listed/key"});
    s3({"put", m_folder.write("file", "second one"), "listed/key"});
    s3({"rm", "listed/key"});
    EXPECT_EQ(s3({"ls", "listed"}).output(), "");

    std::istringstream listing(s3({"--versions", "--page", "1", "ls", "listed/k"}).output());
    std::vector<std::string> told;
    std::string version;
    for (std::string size, time, id, kind, key; listing >> size >> time >> id >> kind >> key;) {
        told.push_back(size + ' ' + kind + ' ' + key);
        version = id;
    }
    EXPECT_EQ(told, (std::vector<std::string>{"- removed key", "10 older key", "5 older key"}));
    const auto fetched = (m_folder.path() / "fetched").string();
    EXPECT_EQ(s3({"--version-id", version, "get", "listed/key", fetched}).errors(), "5 bytes fetched\n");
}

TEST_F(S3ExampleTest, keepsTypeAndMetadata)
{
    for (const int size : {7, 6 << 20}) { // at once, and by parts
        const auto file = m_folder.write("file", std::string(static_cast<size_t>(size), 'm')).string();
        s3({"--part", "5", "--content-type", "text/x-notes", "--metadata", "Author=Zo\xC3\xAB =?x", "--metadata",
            "empty=", "--metadata", "place= here ", "put", file, "bucket/noted-by-us"});
        const std::string shown = s3({"stat", "bucket/noted-by-us"}).output();
        EXPECT_NE(shown.find("\ncontent-type: text/x-notes\n"), std::string::npos) << shown;
        EXPECT_NE(shown.find("\nx-amz-meta-author: Zo\xC3\xAB =?x\n"), std::string::npos) << shown;
        EXPECT_NE(shown.find("\nx-amz-meta-place:  here \n"), std::string::npos) << shown;
    }
}

TEST_F(S3ExampleTest, givesTags)
{
    s3({"put", m_folder.write("file", "content"), "bucket/tagged"});
    EXPECT_EQ(s3({"tag", "bucket/tagged"}).output(), "");
    EXPECT_EQ(s3({"tag", "bucket/tagged", "a=1", "b c=d=\xC3\xAB"}).errors(), "");
    EXPECT_EQ(s3({"tag", "bucket/tagged"}).output(), "a=1\nb c=d=\xC3\xAB\n");
    EXPECT_EQ(s3({"tag", "bucket/tagged", "z="}).errors(), "");
    EXPECT_EQ(s3({"tag", "bucket/tagged"}).output(), "z=\n");
    EXPECT_EQ(s3({"untag", "bucket/tagged"}).errors(), "");
    EXPECT_EQ(s3({"tag", "bucket/tagged"}).output(), "");
    EXPECT_EQ(s3({"tag", "bucket/never"}).exitStatus(), 1);
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
    EXPECT_EQ(missing.errors(), "s3: bucket/missing: Amazon S3 error: (NoSuchKey)\n  404 Not Found\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));

    const auto unread = s3({"put", "/nowhere/file", "bucket/k"});
    EXPECT_EQ(unread.errors(), "s3: The file '/nowhere/file' cannot be read: No such file or directory.\n");
    EXPECT_EQ(unread.exitStatus(), 3);

    m_secret = "wrong/secret";
    const auto refused = s3({"ls", "bucket"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_EQ(refused.errors(), "s3: bucket: Amazon S3 error: (SignatureDoesNotMatch)\n  403 Forbidden\n");
}

} // namespace
