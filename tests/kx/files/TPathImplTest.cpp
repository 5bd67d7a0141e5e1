#include "kx/files/TPathImpl.h"

#include <gtest/gtest.h>

namespace {

using Path = kx::TPathImpl<kx::CUnixPathTraits>;

TEST(TPathImplTest, isEmptyByDefault)
{
    EXPECT_TRUE(Path().isEmpty());
    EXPECT_FALSE(Path().isAbsolute());
}

TEST(TPathImplTest, isJoined)
{
    EXPECT_EQ(Path("a") / "b", Path("a/b"));
    EXPECT_EQ(Path("a/") / "b", Path("a/b"));
    EXPECT_EQ(Path("") / "b", Path("b"));
    EXPECT_EQ(Path("/") / "b", Path("/b"));
    EXPECT_EQ(Path("a") / "/b", Path("/b"));
}

TEST(TPathImplTest, knowsItsFileName)
{
    EXPECT_EQ(Path("/a/b.txt").getFileName(), "b.txt");
    EXPECT_EQ(Path("b.txt").getFileName(), "b.txt");
    EXPECT_EQ(Path("/a/").getFileName(), "");
}

struct CNormalizeRow {
    const char* name;
    const char* path;
    bool resolveParents;
    const char* base;
    const char* expected;
};

class CNormalizeTest : public testing::TestWithParam<CNormalizeRow> {};

TEST_P(CNormalizeTest, givesTheShortestForm)
{
    EXPECT_EQ(
        Path(GetParam().path).toNormalized(GetParam().resolveParents, GetParam().base), Path(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(All, CNormalizeTest,
    testing::ValuesIn(std::vector<CNormalizeRow>{
        {"empty", "", true, "", ""},
        {"emptyWithBase", "", true, "/base", ""},
        {"root", "/", true, "", "/"},
        {"plain", "/a/b", true, "", "/a/b"},
        {"repeatedSeparators", "//a///b/", true, "", "/a/b"},
        {"dots", "./a/./b/.", true, "", "a/b"},
        {"onlyADot", ".", true, "", "."},
        {"parents", "/a/x/../b", true, "", "/a/b"},
        {"parentsKept", "/a/x/../b", false, "", "/a/x/../b"},
        {"parentsOfARelativePath", "../../a/../b", true, "", "../../b"},
        {"parentsAboveTheRoot", "/../../a", true, "", "/a"},
        {"everythingCancelled", "a/..", true, "", "."},
        {"relativeToABase", "b/c", true, "/a", "/a/b/c"},
        {"absoluteDespiteABase", "/b", true, "/a", "/b"},
        {"nonASCII", "/\xFC/..", true, "", "/"},
    }),
    [](const testing::TestParamInfo<CNormalizeRow>& row) { return row.param.name; });

} // namespace
