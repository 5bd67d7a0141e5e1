#include "norla/s3/CS3FolderEnum.h"

#include "kx/base/CInvalidArgError.h"
#include "tests/norla/s3/CS3ListFixture.h"

#include <vector>

namespace {

using norla::CS3FolderEnum;
using Names = std::vector<kx::String>;

class CS3FolderEnumTest : public CS3ListFixture {
protected:
    static std::string object(const std::string& key) { return "<Contents><Key>" + key + "</Key></Contents>"; }

    static std::string folder(const std::string& key)
    {
        return "<CommonPrefixes><Prefix>" + key + "</Prefix></CommonPrefixes>";
    }

    void answerLast(const std::string& content)
    {
        answerDocument("<ListBucketResult>" + content + "<IsTruncated>false</IsTruncated></ListBucketResult>");
    }

    void answerMore(const std::string& content, const std::string& token)
    {
        answerDocument("<ListBucketResult>" + content + "<IsTruncated>true</IsTruncated><NextContinuationToken>" + token
            + "</NextContinuationToken></ListBucketResult>");
    }

    kx::P<CS3FolderEnum> list(const norla::CS3ListOptions& options = {}, const kx::String& delimiter = "/")
    {
        return kx::newObj<CS3FolderEnum>(&store(), &request(), "b", options, delimiter);
    }

    /// Folders with a star behind them.
    static Names rest(CS3FolderEnum& entries)
    {
        Names names;
        while (entries.next())
            names.push_back(
                entries.getCurrent()->key + (entries.getCurrent()->isFolder ? kx::String("*") : kx::String()));
        return names;
    }

    kx::String messageOf(const norla::CS3ListOptions& options = {})
    {
        return support::messageOf([&] { rest(*list(options)); });
    }
};

TEST_F(CS3FolderEnumTest, givesFoldersAndObjectsInOrder)
{
    answerLast(object("p/b") + object("p/d") + folder("p/a/") + folder("p/c/"));
    EXPECT_EQ(rest(*list({.prefix = "p/"})), (Names{"p/a/*", "p/b", "p/c/*", "p/d"}));
    EXPECT_EQ(requestLine(), "GET /b?list-type=2&encoding-type=url&prefix=p%2F&delimiter=%2F HTTP/1.1");
}

TEST_F(CS3FolderEnumTest, givesAFolderOnceWherePagesCutIt)
{
    answerMore(object("a") + folder("b/"), "t");
    answerMore(folder("b/"), "u");
    answerLast(folder("b/") + object("c"));
    EXPECT_EQ(rest(*list()), (Names{"a", "b/*", "c"}));
}

TEST_F(CS3FolderEnumTest, givesAFolderOnceThatAPageHasTwice)
{
    answerLast(folder("b/") + folder("b/"));
    EXPECT_EQ(rest(*list()), Names{"b/*"});
}

TEST_F(CS3FolderEnumTest, takesDelimitersOfSeveralLetters)
{
    answerLast(folder("a--") + object("a-"));
    EXPECT_EQ(rest(*list({}, "--")), (Names{"a-", "a--*"}));
}

TEST_F(CS3FolderEnumTest, givesTheObjectThatMarksTheFolder)
{
    answerLast(object("p/") + object("p/a"));
    EXPECT_EQ(rest(*list({.prefix = "p/"})), (Names{"p/", "p/a"}));
}

TEST_F(CS3FolderEnumTest, asksForAPageAgainThatIsOutOfOrder)
{
    answerMore(folder("b/"), "t");
    answerMore(folder("a/"), "u");
    answerLast(folder("c/"));
    const auto entries = list();
    EXPECT_TRUE(entries->next());
    EXPECT_EQ(support::messageOf([&] { entries->next(); }),
        "The listing of the bucket 'b' is out of order: 'a/' comes behind 'b/'.");
    EXPECT_EQ(rest(*entries), Names{"c/*"});
    EXPECT_EQ(requestLine(1), requestLine(2));
}

TEST_F(CS3FolderEnumTest, refusesAnObjectThatIsThereTwice)
{
    answerMore(object("a"), "t");
    answerLast(object("a"));
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' is out of order: 'a' comes behind 'a'.");
}

TEST_F(CS3FolderEnumTest, refusesWhatTheStoreShouldHaveSummedUp)
{
    answerLast(object("p/a/b"));
    EXPECT_EQ(messageOf({.prefix = "p/"}),
        "The listing of the bucket 'b' has 'p/a/b', which was not asked for: it has the delimiter '/'.");
}

TEST_F(CS3FolderEnumTest, refusesWhatIsNoFolderOfThisLevel)
{
    for (const char* const name : {"p/a", "p/a/b/", "p/", "p//a/"}) {
        answerLast(folder(name));
        EXPECT_THAT(messageOf({.prefix = "p/"}).toUTF8(), testing::EndsWith("not asked for: it is no folder.")) << name;
    }
}

TEST_F(CS3FolderEnumTest, refusesAFolderThatIsNotBehindTheStart)
{
    answerLast(folder("b/"));
    EXPECT_EQ(rest(*list({.startAfter = "b/c"})), Names{"b/*"}); // some of its contents are
    answerLast(folder("a/"));
    EXPECT_EQ(messageOf({.startAfter = "b/c"}),
        "The listing of the bucket 'b' has 'a/', which was not asked for: it is not behind 'b/c'.");
}

TEST_F(CS3FolderEnumTest, wantsADelimiter)
{
    EXPECT_THROW(list({}, ""), kx::CInvalidArgError);
}

} // namespace
