// The splitting of text, judged by wxWidgets' tokenizer.
#include "norla/ftp/tokens.h"

#include <gtest/gtest.h>
#include <wx/tokenzr.h>

#include <random>
#include <string>
#include <vector>

namespace {

using Pieces = std::vector<std::wstring>;

Pieces fields(std::wstring_view text)
{
    Pieces pieces;
    norla::forEachField(text, L';', [&pieces](std::wstring_view piece) { pieces.emplace_back(piece); });
    return pieces;
}

Pieces lines(std::wstring_view text)
{
    Pieces pieces;
    norla::forEachLine(text, [&pieces](std::wstring_view piece) { pieces.emplace_back(piece); });
    return pieces;
}

Pieces judged(const std::wstring& text, const wchar_t* delimiters)
{
    Pieces pieces;
    wxStringTokenizer tokens(text, delimiters);
    while (tokens.HasMoreTokens())
        pieces.push_back(tokens.GetNextToken().ToStdWstring());
    return pieces;
}

/// Short texts of a few characters, so that everything happens.
std::vector<std::wstring> madeTexts(std::wstring_view alphabet)
{
    std::mt19937 random(1);
    std::vector<std::wstring> texts;
    for (int i = 0; i < 10'000; ++i) {
        std::wstring text(random() % 8, L' ');
        for (wchar_t& character : text)
            character = alphabet[random() % alphabet.size()];
        texts.push_back(text);
    }
    return texts;
}

TEST(FTPFieldsTest, keepEmptyOnesBetweenOthers)
{
    EXPECT_EQ(fields(L"a=1;b=2"), (Pieces{L"a=1", L"b=2"}));
    EXPECT_EQ(fields(L"a=1;b=2;"), (Pieces{L"a=1", L"b=2"}));
    EXPECT_EQ(fields(L"a;;b"), (Pieces{L"a", L"", L"b"}));
    EXPECT_EQ(fields(L";a"), (Pieces{L"", L"a"}));
    EXPECT_EQ(fields(L""), Pieces());
}

TEST(FTPFieldsTest, agreeWithTheTokenizer)
{
    for (const std::wstring& text : madeTexts(L"a=;;"))
        ASSERT_EQ(fields(text), judged(text, L";")) << testing::PrintToString(text);
}

TEST(FTPLinesTest, areNeverEmpty)
{
    EXPECT_EQ(lines(L"a\r\n\r\nb\nc\r"), (Pieces{L"a", L"b", L"c"}));
    EXPECT_EQ(lines(L"\r\n"), Pieces());
    EXPECT_EQ(lines(L""), Pieces());
}

TEST(FTPLinesTest, agreeWithTheTokenizer)
{
    for (const std::wstring& text : madeTexts(L"a \r\n"))
        ASSERT_EQ(lines(text), judged(text, L"\r\n")) << testing::PrintToString(text);
}

} // namespace
