// Percent-encoding of texts, forms and queries.
#include "kx/text/hex.h"
#include "norla/http/util.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

// A surrogate: the only kind of text without UTF-8 form, together with values beyond Unicode.
const kx::String withoutUTF8 = L"a\xD800";

TEST(UrlEscapeTest, keepsTheUnreservedCharacters)
{
    const kx::String unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    EXPECT_EQ(norla::urlEscape(unreserved, false), unreserved);
    EXPECT_EQ(norla::urlEscape(unreserved, true), unreserved);
}

TEST(UrlEscapeTest, escapesEveryOtherASCIICharacterInLowerCase)
{
    EXPECT_EQ(norla::urlEscape("!\"#$%&'()*+,/:;<=>?@[\\]^`{|}", true),
        "%21%22%23%24%25%26%27%28%29%2a%2b%2c%2f%3a%3b%3c%3d%3e%3f%40%5b%5c%5d%5e%60%7b%7c%7d");
    EXPECT_EQ(norla::urlEscape("\t\r\n\x1F\x7F", true), "%09%0d%0a%1f%7f");
}

TEST(UrlEscapeTest, escapesANulCharacter)
{
    EXPECT_EQ(norla::urlEscape(kx::String(std::wstring(L"a\0b", 3)), false), "a%00b");
}

TEST(UrlEscapeTest, escapesASpaceLikeTheOthers)
{
    EXPECT_EQ(norla::urlEscape("a b/c~", false), "a%20b%2fc~");
}

TEST(UrlEscapeTest, writesASpaceAsPlusWhenAsked)
{
    EXPECT_EQ(norla::urlEscape("a b/c~", true), "a+b%2fc~");
}

TEST(UrlEscapeTest, escapesTheBytesOfUTF8)
{
    EXPECT_EQ(norla::urlEscape(L"\u00E9", false), "%c3%a9");
    EXPECT_EQ(norla::urlEscape(L"\u20AC\U0001F600", true), "%e2%82%ac%f0%9f%98%80");
}

TEST(UrlEscapeTest, takesATextWithoutUTF8FormForEmpty)
{
    EXPECT_EQ(norla::urlEscape(withoutUTF8, false), "");
}

TEST(UrlEscapeTest, ofNothingIsNothing)
{
    EXPECT_EQ(norla::urlEscape("", true), "");
}

struct CUnescapeRow {
    const char* name;
    kx::String escaped;
    const wchar_t* text;
    const wchar_t* textWithSpaces;
};

class UrlUnescapeTest : public testing::TestWithParam<CUnescapeRow> {};

TEST_P(UrlUnescapeTest, decodes)
{
    EXPECT_EQ(norla::urlUnescape(GetParam().escaped, false), GetParam().text);
}

TEST_P(UrlUnescapeTest, decodesWithPlusAsSpace)
{
    EXPECT_EQ(norla::urlUnescape(GetParam().escaped, true), GetParam().textWithSpaces);
}

INSTANTIATE_TEST_SUITE_P(All, UrlUnescapeTest,
    testing::ValuesIn(std::vector<CUnescapeRow>{
        {"empty", "", L"", L""},
        {"plain", "abc", L"abc", L"abc"},
        {"bothCases", "%41%4a%4A", L"AJJ", L"AJJ"},
        {"plus", "a+b", L"a+b", L"a b"},
        {"escapedPlus", "a%2bb", L"a+b", L"a+b"},
        {"noHexadecimal", "%zz", L"%zz", L"%zz"},
        {"secondDigitWrong", "%4z", L"%4z", L"%4z"},
        {"firstDigitWrong", "%z4", L"%z4", L"%z4"},
        {"signIsNoDigit", "%+1%-1", L"%+1%-1", L"% 1%-1"},
        {"percentAtTheEnd", "100%", L"100%", L"100%"},
        {"oneDigitAtTheEnd", "100%4", L"100%4", L"100%4"},
        {"twoDigitsAtTheEnd", "100%41", L"100A", L"100A"},
        {"percentAlone", "%", L"%", L"%"},
        {"percentBeforeAnEscape", "%%41", L"%A", L"%A"},
        {"percentAndDigitBeforeAnEscape", "%4%41", L"%4A", L"%4A"},
        {"decodedOnce", "%2541", L"%41", L"%41"},
        {"manyBytes", "%c3%A9%E2%82%ac%f0%9f%98%80", L"\u00E9\u20AC\U0001F600", L"\u00E9\u20AC\U0001F600"},
        {"otherCharactersAsTheyAre", "\xE9%41", L"\u00E9A", L"\u00E9A"},
        {"noUTF8", "a%ff", L"", L""},
        {"halfACharacter", "a%c3", L"", L""},
        {"overlong", "%c0%80", L"", L""},
        {"surrogate", "%ed%a0%80", L"", L""},
    }),
    [](const testing::TestParamInfo<CUnescapeRow>& row) { return row.param.name; });

TEST(UrlUnescapeTextTest, decodesANulCharacter)
{
    EXPECT_EQ(norla::urlUnescape("a%00b", false), kx::String(std::wstring(L"a\0b", 3)));
}

TEST(UrlUnescapeTextTest, takesATextWithoutUTF8FormForEmpty)
{
    EXPECT_EQ(norla::urlUnescape(withoutUTF8, false), "");
}

TEST(UrlUnescapeTextTest, undoesEscapingForEveryCharacter)
{
    for (wchar_t character = 0; character < 0x110000; character += character < 0x1000 ? 1 : 0xFD) {
        if (character >= 0xD800 && character <= 0xDFFF)
            continue;
        const kx::String text(std::wstring(1, character));
        ASSERT_EQ(norla::urlUnescape(norla::urlEscape(text, true), true), text) << static_cast<long>(character);
        ASSERT_EQ(norla::urlUnescape(norla::urlEscape(text, false), false), text) << static_cast<long>(character);
    }
}

TEST(FormURLEncodeTest, escapesInUpperCaseAndNeverWritesAPlus)
{
    EXPECT_EQ(norla::formURLEncode(L"a b+c~\u00E9", false), "a%20b%2Bc~%C3%A9");
}

TEST(FormURLEncodeTest, keepsASlashUnlessAsked)
{
    EXPECT_EQ(norla::formURLEncode("a/b", false), "a/b");
    EXPECT_EQ(norla::formURLEncode("a/b", true), "a%2Fb");
}

TEST(FormURLEncodeTest, keepsNoOtherCharacter)
{
    EXPECT_EQ(norla::formURLEncode("=&:@", false), "%3D%26%3A%40");
}

TEST(FormURLEncodeTest, takesATextWithoutUTF8FormForEmpty)
{
    EXPECT_EQ(norla::formURLEncode(withoutUTF8, false), "");
}

TEST(FormURLEncodeTest, joinsTheEntriesOfAMapByKey)
{
    EXPECT_EQ(norla::formURLEncode(Map{{"b/", "x y"}, {"a&", ""}, {"", "="}}, false), "=%3D&a%26=&b/=x%20y");
}

TEST(FormURLEncodeTest, passesItsFlagOnForTheEntriesOfAMap)
{
    EXPECT_EQ(norla::formURLEncode(Map{{"a/", "/b"}}, true), "a%2F=%2Fb");
}

TEST(FormURLEncodeTest, takesEntriesInBracesForAMap)
{
    EXPECT_EQ(norla::formURLEncode({{"a/", "/b"}}, true), "a%2F=%2Fb");
    EXPECT_EQ(norla::formURLEncode({{"b/", "x y"}, {"a&", ""}, {"", "="}}, false), "=%3D&a%26=&b/=x%20y");
    EXPECT_EQ(norla::formURLEncode({{"a", kx::String("b")}}, true), "a=b");
    EXPECT_EQ(norla::formURLEncode({{L"\u00E9", u8"\u00E9"}}, true), "%C3%A9=%C3%A9");
    EXPECT_EQ(norla::formURLEncode({{"a", "1"}, {"a", "2"}}, true), "a=1");
    EXPECT_EQ(norla::formURLEncode({}, true), "");
}

TEST(FormURLEncodeTest, joinsProperties)
{
    kx::CProps props;
    props.set("b/", "x y");
    props.set("a", "");
    EXPECT_EQ(norla::formURLEncode(props, false), "a=&b/=x%20y");
    EXPECT_EQ(norla::formURLEncode(props, true), "a=&b%2F=x%20y");
}

TEST(FormURLEncodeTest, ofAnEmptyMapIsNothing)
{
    EXPECT_EQ(norla::formURLEncode(Map(), false), "");
    EXPECT_EQ(norla::formURLEncode(kx::CProps(), false), "");
}

TEST(EncodeURLParamsTest, joinsTheEntriesByKey)
{
    EXPECT_EQ(norla::encodeURLParams({{"b", "2"}, {"a", "x y"}}), "a=x+y&b=2");
}

TEST(EncodeURLParamsTest, escapesKeysAndValues)
{
    EXPECT_EQ(norla::encodeURLParams({{"a &=/", L"\u00E9+"}}), "a+%26%3d%2f=%c3%a9%2b");
}

TEST(EncodeURLParamsTest, writesAnEqualsSignForAnEmptyValue)
{
    EXPECT_EQ(norla::encodeURLParams({{"a", ""}, {"b", ""}}), "a=&b=");
}

TEST(EncodeURLParamsTest, writesAnEmptyKey)
{
    EXPECT_EQ(norla::encodeURLParams({{"", ""}, {"a", "1"}}), "=&a=1");
}

TEST(EncodeURLParamsTest, ofAnEmptyMapIsNothing)
{
    EXPECT_EQ(norla::encodeURLParams({}), "");
}

struct CParamsRow {
    const char* name;
    kx::String text;
    Map map;
};

class DecodeURLParamsTest : public testing::TestWithParam<CParamsRow> {};

TEST_P(DecodeURLParamsTest, findsThePairs)
{
    Map map;
    norla::decodeURLParams(GetParam().text, map);
    EXPECT_EQ(map, GetParam().map);
}

INSTANTIATE_TEST_SUITE_P(All, DecodeURLParamsTest,
    testing::ValuesIn(std::vector<CParamsRow>{
        {"empty", "", {}},
        {"one", "a=1", {{"a", "1"}}},
        {"lastValueWins", "a=1&b&a=3", {{"a", "3"}, {"b", ""}}},
        {"lastValueWinsEvenIfEmpty", "a=1&a", {{"a", ""}}},
        {"splitAtTheFirstEqualsSign", "a=1=2&=3", {{"a", "1=2"}, {"", "3"}}},
        {"emptyPart", "a=1&&b=2", {{"a", "1"}, {"", ""}, {"b", "2"}}},
        {"emptyPartFirst", "&a=1", {{"", ""}, {"a", "1"}}},
        {"emptyPartLast", "a=1&", {{"a", "1"}}},
        {"ampersandAlone", "&", {{"", ""}}},
        {"equalsSignAlone", "=", {{"", ""}}},
        {"emptyPartTakesTheValueBack", "=1&", {{"", "1"}}},
        {"emptyPartReplacesTheValue", "=1&&", {{"", ""}}},
        {"plusIsASpace", "a+b=c+d", {{"a b", "c d"}}},
        {"decodedAfterTheSplit", "a%26b%3Dc=d%26e%3Df", {{"a&b=c", "d&e=f"}}},
        {"semicolonIsNoSeparator", "a=1;b=2", {{"a", "1;b=2"}}},
        {"malformedEscapes", "%zz=100%&%", {{"%zz", "100%"}, {"%", ""}}},
        {"noUTF8", "%ff=%c3%a9&a=%ff", {{"", L"\u00E9"}, {"a", ""}}},
    }),
    [](const testing::TestParamInfo<CParamsRow>& row) { return row.param.name; });

TEST(DecodeURLParamsMapTest, addsToWhatTheMapHolds)
{
    Map map{{"a", "old"}, {"b", "old"}};
    norla::decodeURLParams("b=new&c=new", map);
    EXPECT_EQ(map, (Map{{"a", "old"}, {"b", "new"}, {"c", "new"}}));
}

TEST(DecodeURLParamsMapTest, leavesTheMapForAnEmptyText)
{
    Map map{{"a", "old"}};
    norla::decodeURLParams("", map);
    EXPECT_EQ(map, (Map{{"a", "old"}}));
}

TEST(DecodeURLParamsMapTest, undoesEncoding)
{
    const Map map{{"", ""}, {"a &=+%", L"\u00E9 \U0001F600"}, {"b", ""}};
    Map decoded;
    norla::decodeURLParams(norla::encodeURLParams(map), decoded);
    EXPECT_EQ(decoded, map);
}

// Python's urllib.parse says what is right, for texts that the script makes up. It differs, and the script makes up for
// it: quote() writes escapes in upper case, which urlEscape() does not; unquote() puts replacement characters in the
// place of bytes that are not UTF-8, where urlUnescape() gives nothing; parse_qsl() leaves out empty parts of a query.
class UrllibTest : public testing::Test {
protected:
    using Fields = std::vector<kx::String>;

    /// The rows that the script writes for a function of ours.
    static std::vector<Fields> rowsOf(const std::string& function)
    {
        constexpr int rowCount = 10'000;
        std::vector<Fields> result;
        for (const auto& row :
            rows::fromScript(NORLA_HTTP_TESTS_DIR "/urllib_rows.py", {function, std::to_string(rowCount)}))
            std::transform(row.begin(), row.end(), std::back_inserter(result.emplace_back()), &decoded);
        EXPECT_EQ(result.size(), static_cast<size_t>(rowCount));
        return result;
    }

    static void expectSame(const std::string& function, const std::function<kx::String(const kx::String&)>& ours)
    {
        for (const Fields& row : rowsOf(function))
            EXPECT_EQ(ours(row.at(0)), row.at(1)) << row.at(0);
    }

    static void expectSameOfMaps(const std::string& function, const std::function<kx::String(const Map&)>& ours)
    {
        for (const Fields& row : rowsOf(function))
            EXPECT_EQ(ours(mapOf(row)), row.at(0));
    }

    /// The keys and values from the second field on.
    static Map mapOf(const Fields& row)
    {
        Map map;
        for (size_t i = 1; i + 1 < row.size(); i += 2)
            map[row[i]] = row[i + 1];
        return map;
    }

private:
    static kx::String decoded(const std::string& hex) { return kx::String::fromUTF8(rows::bytesOf(hex)); }
};

TEST_F(UrllibTest, quotesAsUrlEscapeDoes)
{
    expectSame("urlEscape", [](const kx::String& text) { return norla::urlEscape(text, false); });
}

TEST_F(UrllibTest, quotesWithPlusAsUrlEscapeDoes)
{
    expectSame("urlEscapePlus", [](const kx::String& text) { return norla::urlEscape(text, true); });
}

TEST_F(UrllibTest, quotesAsFormURLEncodeDoes)
{
    expectSame("formURLEncode", [](const kx::String& text) { return norla::formURLEncode(text, false); });
}

TEST_F(UrllibTest, quotesSlashesAsFormURLEncodeDoes)
{
    expectSame("formURLEncodeSlash", [](const kx::String& text) { return norla::formURLEncode(text, true); });
}

TEST_F(UrllibTest, unquotesAsUrlUnescapeDoes)
{
    expectSame("urlUnescape", [](const kx::String& text) { return norla::urlUnescape(text, false); });
}

TEST_F(UrllibTest, unquotesPlusAsUrlUnescapeDoes)
{
    expectSame("urlUnescapePlus", [](const kx::String& text) { return norla::urlUnescape(text, true); });
}

TEST_F(UrllibTest, joinsParamsAsEncodeURLParamsDoes)
{
    expectSameOfMaps("encodeURLParams", [](const Map& map) { return norla::encodeURLParams(map); });
}

TEST_F(UrllibTest, joinsParamsAsFormURLEncodeDoes)
{
    expectSameOfMaps("formURLEncodeMap", [](const Map& map) { return norla::formURLEncode(map, true); });
}

TEST_F(UrllibTest, splitsAQueryAsDecodeURLParamsDoes)
{
    for (const Fields& row : rowsOf("decodeURLParams")) {
        Map found;
        norla::decodeURLParams(row.at(0), found);
        EXPECT_EQ(found, mapOf(row)) << row.at(0);
    }
}

} // namespace
