#include "kx/files/TPathImpl.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

struct CPathBytesRow {
    const char* name;
    std::string bytes;
    kx::String text;
};

class CPathBytesTest : public testing::TestWithParam<CPathBytesRow> {};

TEST_P(CPathBytesTest, areReadAsText)
{
    EXPECT_EQ(Path::fromBytes(GetParam().bytes).toString(), GetParam().text);
}

TEST_P(CPathBytesTest, comeBack)
{
    EXPECT_EQ(Path::fromBytes(GetParam().bytes).toBytes(), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(All, CPathBytesTest,
    testing::ValuesIn(std::vector<CPathBytesRow>{
        {"empty", "", ""},
        {"ascii", "/a b/c", "/a b/c"},
        {"utf8", "/gr\xC3\xBCn/\xF0\x9F\x9A\x80", L"/gr\u00FCn/\U0001F680"},
        {"latin1", "/gr\xFCn", L"/gr\xDCFCn"},
        {"atTheStart", "\xFF\x80/a", L"\xDCFF\xDC80/a"},
        {"cutCharacter", "/a\xE2\x82", L"/a\xDCE2\xDC82"},
        {"besideUTF8", "\xC3\xBC\xFC\xC3\xBC", L"\u00FC\xDCFC\u00FC"},
        {"overlongSlash",
            "a\xC0\xAF"
            "b",
            L"a\xDCC0\xDCAF"
            L"b"},
        {"surrogateInUTF8", "\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},
        {"beyondUnicode", "\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},
    }),
    [](const testing::TestParamInfo<CPathBytesRow>& row) { return row.param.name; });

TEST(TPathImplTest, keepsEveryByteOfAName)
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += std::string(1, static_cast<char>(byte)) + "x";
    EXPECT_EQ(Path::fromBytes(bytes).toBytes(), bytes);
}

TEST(TPathImplTest, keepsBytesWhenItIsJoinedAndNormalized)
{
    const Path path = (Path::fromBytes("/\xFF/./b") / Path::fromBytes("\xC3")).toNormalized(true, Path());
    EXPECT_EQ(path.toBytes(), "/\xFF/b/\xC3");
}

TEST(TPathImplTest, givesLiteralsAsUTF8)
{
    EXPECT_EQ(Path("/gr\xFCn").toBytes(), "/gr\xC3\xBCn");
}

TEST(TPathImplTest, hasNoBytesForOtherSurrogates)
{
    for (const wchar_t surrogate : {L'\xD800', L'\xDC7F', L'\xDD00', L'\xDFFF'})
        EXPECT_THROW(Path(kx::String(std::wstring(1, surrogate))).toBytes(), kx::CError) << static_cast<int>(surrogate);
}

TEST(TPathImplTest, isShownWithReplacementCharacters)
{
    EXPECT_EQ(Path::fromBytes("/a\xFF").toString().toDisplayUTF8(), "/a\xEF\xBF\xBD");
}

struct CNormalizeRow {
    const char* name;
    Path path;
    bool resolveParents;
    Path base;
    Path expected;
};

class CNormalizeTest : public testing::TestWithParam<CNormalizeRow> {};

TEST_P(CNormalizeTest, givesTheShortestForm)
{
    EXPECT_EQ(GetParam().path.toNormalized(GetParam().resolveParents, GetParam().base), GetParam().expected);
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
