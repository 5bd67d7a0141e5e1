#include "kx/text/String.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sstream>

namespace {

using kx::String;

const wchar_t* const rocket = L"\U0001F680";

kx::P<kx::CError> errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

TEST(StringTest, isEmptyByDefault)
{
    EXPECT_TRUE(String().isEmpty());
    EXPECT_EQ(String().size(), 0u);
}

TEST(StringTest, readsANarrowLiteralAsISO88591)
{
    EXPECT_EQ(String("gr\xFCn"), String(L"gr\u00FCn"));
}

TEST(StringTest, readsAUTF8Literal)
{
    EXPECT_EQ(String(u8"gr\u00FCn"), String(L"gr\u00FCn"));
}

TEST(StringTest, takesNullPointersForEmptyTexts)
{
    EXPECT_EQ(String(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(String(static_cast<const char8_t*>(nullptr)), "");
}

TEST(StringTest, countsACharacterBeyondTheBasicPlaneOnce)
{
    EXPECT_EQ(String(rocket).size(), 1u);
}

TEST(StringTest, keepsZeroCharacters)
{
    const String text(std::wstring(L"a\0b", 3));
    EXPECT_EQ(String::fromUTF8(text.toUTF8()), text);
    EXPECT_EQ(text.size(), 3u);
}

// What was made first is destroyed last: the text of a global object, and what its destructor does with it.
TEST(StringDeathTest, isConvertedWhileTheProcessExits)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        std::atexit([] { std::_Exit(String::fromUTF8("\xC3\xBC").toUTF8() == "\xC3\xBC" ? 0 : 1); });
        static_cast<void>(String(L"\u00FC").toUTF8());
        std::exit(2);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

struct CUTF8Row {
    const char* name;
    const wchar_t* text;
    const char* bytes;
};

class UTF8Test : public testing::TestWithParam<CUTF8Row> {};

TEST_P(UTF8Test, isDecoded)
{
    EXPECT_EQ(String::fromUTF8(GetParam().bytes), GetParam().text);
}

TEST_P(UTF8Test, isEncoded)
{
    EXPECT_EQ(String(GetParam().text).toUTF8(), GetParam().bytes);
}

TEST_P(UTF8Test, isShownAsItIs)
{
    EXPECT_EQ(String(GetParam().text).toDisplayUTF8(), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(All, UTF8Test,
    testing::ValuesIn(std::vector<CUTF8Row>{
        {"empty", L"", ""},
        {"ascii", L"abc \x7F", "abc \x7F"},
        {"firstOfTwoBytes", L"\u0080", "\xC2\x80"},
        {"lastOfTwoBytes", L"\u07FF", "\xDF\xBF"},
        {"firstOfThreeBytes", L"\u0800", "\xE0\xA0\x80"},
        {"belowTheSurrogates", L"\uD7FF", "\xED\x9F\xBF"},
        {"aboveTheSurrogates", L"\uE000", "\xEE\x80\x80"},
        {"lastOfThreeBytes", L"\uFFFF", "\xEF\xBF\xBF"},
        {"firstOfFourBytes", L"\U00010000", "\xF0\x90\x80\x80"},
        {"last", L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
        {"mixed", L"a\u00FC\u20AC\U0001F680z", "a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x9A\x80z"},
    }),
    [](const testing::TestParamInfo<CUTF8Row>& row) { return row.param.name; });

struct CBadUTF8Row {
    const char* name;
    const char* bytes;
    int position;
};

class BadUTF8Test : public testing::TestWithParam<CBadUTF8Row> {};

TEST_P(BadUTF8Test, isRefusedNamingTheByte)
{
    const auto error = errorOf([] { String::fromUTF8(GetParam().bytes); });
    ASSERT_NE(error, nullptr);
    const std::string position = std::to_string(GetParam().position);
    EXPECT_EQ(error->getMessage(), String::fromLatin1("Text is not valid UTF-8 at byte " + position + "."));
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
}

INSTANTIATE_TEST_SUITE_P(All, BadUTF8Test,
    testing::ValuesIn(std::vector<CBadUTF8Row>{
        {"loneContinuation", "ab\x80", 2},
        {"truncatedTwo", "a\xC3", 1},
        {"truncatedThree", "\xE2\x82", 0},
        {"truncatedFour", "\xF0\x9F\x9A", 0},
        {"brokenInTheMiddle", "\xE2\x28\xA1", 0},
        {"overlongTwo", "\xC0\xAF", 0},
        {"overlongThree", "\xE0\x80\xAF", 0},
        {"overlongFour", "\xF0\x80\x80\xAF", 0},
        {"surrogate", "x\xED\xA0\x80", 1},
        {"beyondTheLast", "\xF4\x90\x80\x80", 0},
        {"neverUsed", "\xFE", 0},
        {"latin1", "caf\xE9", 3},
        {"afterAGoodOne", "\xC3\xBC\xFF", 2},
    }),
    [](const testing::TestParamInfo<CBadUTF8Row>& row) { return row.param.name; });

TEST(StringTest, doesNotReadBeyondTheEndOfItsBytes)
{
    const std::string_view whole = "a\xE2\x82\xAC";
    const auto error = errorOf([whole] { String::fromUTF8(whole.substr(0, 3)); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Text is not valid UTF-8 at byte 1.");
}

TEST(StringTest, endsInAZeroCharacterWhereItsBytesGoOn)
{
    const std::string_view whole = "abcdef";
    EXPECT_STREQ(String::fromUTF8(whole.substr(0, 3)).toWide().c_str(), L"abc");
}

TEST(StringTest, hasNoUTF8FormForASurrogate)
{
    const auto error = errorOf([] { static_cast<void>(String(std::wstring(L"ab") + wchar_t(0xD800)).toUTF8()); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Text has no UTF-8 form at character 2.");
}

TEST(StringTest, hasNoUTF8FormBeyondTheLastCodePoint)
{
    EXPECT_NE(errorOf([] { static_cast<void>(String(std::wstring(1, wchar_t(0x110000))).toUTF8()); }), nullptr);
}

TEST(StringTest, showsAReplacementForWhatHasNoUTF8Form)
{
    EXPECT_EQ(String(std::wstring(L"a") + wchar_t(0xD800) + L"\u00FC").toDisplayUTF8(), "a\xEF\xBF\xBD\xC3\xBC");
}

TEST(StringTest, streamsWhatItShows)
{
    std::ostringstream out;
    out << String(L"gr\u00FCn") << String(std::wstring(1, wchar_t(0xD800)));
    EXPECT_EQ(out.str(), "gr\xC3\xBCn\xEF\xBF\xBD");
}

TEST(StringTest, convertsFromAndToLatin1)
{
    EXPECT_EQ(String::fromLatin1(std::string_view("a\0\xFF", 3)), String(std::wstring(L"a\0\u00FF", 3)));
    EXPECT_EQ(String(L"a\u00FF").toLatin1(), "a\xFF");
}

TEST(StringTest, hasNoLatin1FormBeyondIt)
{
    const auto error = errorOf([] { static_cast<void>(String(L"\u0100").toLatin1()); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), L"Text cannot be written in ISO 8859-1: '\u0100'.");
}

TEST(StringTest, findsFromAPositionOn)
{
    const String text = "abcabc";
    EXPECT_EQ(text.find("bc"), 1u);
    EXPECT_EQ(text.find("bc", 2), 4u);
    EXPECT_EQ(text.find(L'c', 3), 5u);
    EXPECT_EQ(text.find("x"), String::npos);
    EXPECT_EQ(text.find("a", 7), String::npos);
    EXPECT_EQ(text.rfind(L'a'), 3u);
    EXPECT_EQ(text.rfind(L'x'), String::npos);
}

TEST(StringTest, takesPartsWithinItsBounds)
{
    const String text = "abc";
    EXPECT_EQ(text.substr(1), "bc");
    EXPECT_EQ(text.substr(1, 1), "b");
    EXPECT_EQ(text.substr(3), "");
    EXPECT_EQ(text.substr(4), "");
    EXPECT_EQ(text.substr(1, 100), "bc");
}

TEST(StringTest, trimsAllSixKindsOfWhiteSpace)
{
    const String text = " \t\r\n\v\fa b \f\v\n\r\t ";
    EXPECT_EQ(text.trim(), "a b");
    EXPECT_EQ(text.trimLeft(), "a b \f\v\n\r\t ");
    EXPECT_EQ(text.trimRight(), " \t\r\n\v\fa b");
}

TEST(StringTest, trimsNothingElse)
{
    EXPECT_EQ(String(L"\u00A0a\u2003").trim(), L"\u00A0a\u2003");
}

TEST(StringTest, trimsWhiteSpaceAloneToNothing)
{
    EXPECT_EQ(String(" \t").trim(), "");
    EXPECT_EQ(String(" \t").trimLeft(), "");
    EXPECT_EQ(String(" \t").trimRight(), "");
    EXPECT_EQ(String().trim(), "");
}

TEST(StringTest, lowersASCIILettersAlone)
{
    EXPECT_EQ(String(L"AZ[@`az\u00C4\u0130").toLower(), L"az[@`az\u00C4\u0130");
}

TEST(StringTest, takesOverAnotherText)
{
    String text = "before";
    text.assign(L"\u00E4fter");
    EXPECT_EQ(text, L"\u00E4fter");
    text.assign(std::wstring_view(text.toWide()).substr(1));
    EXPECT_EQ(text, "fter");
}

TEST(StringTest, knowsHowItStartsAndEnds)
{
    EXPECT_TRUE(String("abc").startsWith("ab"));
    EXPECT_FALSE(String("abc").startsWith("bc"));
    EXPECT_TRUE(String("abc").startsWith(""));
    EXPECT_TRUE(String("abc").endsWith("bc"));
    EXPECT_FALSE(String("abc").endsWith("abcd"));
}

TEST(StringTest, replacesEveryOccurrence)
{
    EXPECT_EQ(String("a.b.c").replaceAll(".", "--"), "a--b--c");
    EXPECT_EQ(String("aaa").replaceAll("aa", "a"), "aa"); // from the left, not looking again at what it put in
    EXPECT_EQ(String("abc").replaceAll("b", ""), "ac");
    EXPECT_EQ(String("abc").replaceAll("", "x"), "abc");
    EXPECT_EQ(String("abc").replaceAll("x", "y"), "abc");
}

TEST(StringTest, isJoined)
{
    String text = "a";
    text += "b";
    text += L'c';
    EXPECT_EQ(text + "d", "abcd");
    EXPECT_EQ("0" + text, "0abc");
    EXPECT_EQ(String("x") + text, "xabc");
}

TEST(StringTest, isComparedByCodePoint)
{
    EXPECT_LT(String("Z"), String("a"));
    EXPECT_LT(String(L"\uFFFF"), String(L"\U00010000"));
    EXPECT_LT(String("a"), String("aa"));
    EXPECT_NE(String("a"), String("A"));
}

TEST(StringTest, givesItsCharacters)
{
    const String text = L"a\u00FC";
    EXPECT_EQ(text[1], L'\u00FC');
    EXPECT_EQ(std::wstring(text.begin(), text.end()), L"a\u00FC");
    EXPECT_EQ(text.toWide(), L"a\u00FC");
}

} // namespace
