#include "norla/ftp/CFTPGetInfoResult.h"

#include "kx/containers/TArray.h"
#include "norla/core/CNetStringList.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

using norla::CFTPGetInfoResult;

kx::P<norla::CFTPDirEntry> entryIn(std::initializer_list<const char*> lines)
{
    norla::CNetStringList list;
    for (const char* const line : lines)
        list.add(kx::String::fromLatin1(line));
    return CFTPGetInfoResult(list).getEntry();
}

TEST(CFTPGetInfoResultTest, readsTheLineBehindTheFirstOfTheReply)
{
    const auto entry = entryIn({"220 Welcome\r\n", "250-Listing /x\r\n", " type=file;size=3; /x\r\n", "250 End\r\n"});
    EXPECT_EQ(entry->getType(), norla::CFTPDirEntry::TypeFile);
    EXPECT_EQ(entry->getName(), "/x");
    EXPECT_EQ(entry->getSize(), 3);
}

TEST(CFTPGetInfoResultTest, takesTheLastOfSeveral)
{
    EXPECT_EQ(entryIn({"250-a\r\n", " size=1; /a\r\n", "250 End\r\n", "250-b\r\n", " size=2; /b\r\n", "250 End\r\n"})
                  ->getName(),
        "/b");
}

TEST(CFTPGetInfoResultTest, doesNotTakeAFactLineForABeginning)
{
    EXPECT_EQ(entryIn({"250-a\r\n", "250-size=1; /a\r\n", "250 End\r\n"})->getName(), "/a");
}

TEST(CFTPGetInfoResultTest, takesAnyWhiteSpaceBeforeTheFactsAndAnyLineEnd)
{
    EXPECT_EQ(entryIn({"250-a\r\n", " \t size=1; /a \r\n"})->getName(), "/a ");
    EXPECT_EQ(entryIn({"250-a\r\n", "size=1; /a"})->getName(), "/a");
    EXPECT_EQ(entryIn({"250-a\r\n", " size=1; /a\n"})->getName(), "/a\n");
}

TEST(CFTPGetInfoResultTest, tellsWhatTheServerSaidInstead)
{
    const auto error = support::errorOf([] { entryIn({"220 Hello\r\n", "550 Not found\r\n"}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "Invalid response to FTP MLST request (no info line found).");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
    EXPECT_EQ(error->getProps().get("response"), "220 Hello\r\n550 Not found\r\n");
}

TEST(CFTPGetInfoResultTest, missesTheLineInAReplyThatEnds)
{
    EXPECT_EQ(support::messageOf([] { entryIn({"250-Listing\r\n"}); }),
        "Invalid response to FTP MLST request (no info line found).");
    EXPECT_EQ(support::errorOf([] { entryIn({}); })->getProps().get("response"), "");
}

TEST(CFTPGetInfoResultTest, passesOverWhatIsSaidOnTheWay)
{
    EXPECT_EQ(entryIn({"250-Welcome to\r\n", "250-our place\r\n", "250 OK. Current directory is /\r\n", "250-Begin\r\n",
                          " size=1; /a\r\n", "250 End.\r\n"})
                  ->getName(),
        "/a");
}

TEST(CFTPGetInfoResultTest, passesOverWhatIsSaidInAnyNumberOfLines)
{
    for (size_t count = 0; count < 6; ++count) {
        norla::CNetStringList lines;
        for (size_t i = 0; i < count; ++i)
            lines.add("250-message\r\n");
        for (const kx::String& line :
            kx::TArray<kx::String>{"250 there\r\n", "250-Begin\r\n", " size=1; /a\r\n", "250 End.\r\n"})
            lines.add(line);
        EXPECT_EQ(CFTPGetInfoResult(lines).getEntry()->getName(), "/a") << count;
    }
}

TEST(CFTPGetInfoResultTest, takesALineThatIsNoFactForABeginning)
{
    EXPECT_EQ(entryIn({"250-message\r\n", "250-Begin\r\n", " size=1; /a\r\n", "250 End\r\n"})->getName(), "/a");
    EXPECT_EQ(
        entryIn({"250-old\r\n", " size=1; /old\r\n", "250-message\r\n", "250-Begin\r\n", " size=1; /a\r\n"})->getName(),
        "/a");
    EXPECT_EQ(support::messageOf([] {
        entryIn({"250-a\r\n", "250-b\r\n", "250 End\r\n"});
    }),
        "Invalid FTP dir entry: '250-b'");
}

TEST(CFTPGetInfoResultTest, namesTheFirstLineThatIsFollowedByNoneThatCanBeRead)
{
    const auto messageIn
        = [](std::initializer_list<const char*> lines) { return support::messageOf([&lines] { entryIn(lines); }); };
    EXPECT_EQ(messageIn({"250-a\r\n", "one\r\n", "250-b\r\n", "two\r\n"}), "Invalid FTP dir entry: 'one'");
    EXPECT_EQ(messageIn({"250-a\r\n", "size=1; /a\r\n", "250-b\r\n", "two\r\n"}), "Invalid FTP dir entry: 'two'");
    EXPECT_EQ(messageIn({"250-a\r\n", "one\r\n", "250-b\r\n", "size=1; /b\r\n", "250-c\r\n", "three\r\n"}),
        "Invalid FTP dir entry: 'three'");
}

TEST(CFTPGetInfoResultTest, logsNothing)
{
    const support::CLogRecorder log;
    entryIn({"250-a\r\n", "broken\r\n", "250-b\r\n", "size=1; /b\r\n"});
    support::messageOf([] { entryIn({"550 Not found\r\n"}); });
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST(CFTPGetInfoResultTest, passesOnWhatIsWrongWithTheLine)
{
    EXPECT_EQ(support::messageOf([] { entryIn({"250-a\r\n", "250 End\r\n"}); }), "Invalid FTP dir entry: '250 End'");
}

} // namespace
