#include "norla/files/suggestedName.h"

#include <gtest/gtest.h>

namespace {

std::string nameIn(const kx::String& header)
{
    return norla::suggestedNameIn(header).toUTF8();
}

TEST(SuggestedNameTest, isTheTokenOrTheQuotedText)
{
    EXPECT_EQ(nameIn("attachment; filename=report.pdf"), "report.pdf");
    EXPECT_EQ(nameIn("attachment;FileName = \"my report.pdf\" ; size=3"), "my report.pdf");
    EXPECT_EQ(nameIn("inline; filename=\"a;b=c.txt\""), "a;b=c.txt");
    EXPECT_EQ(nameIn("attachment; filename=\"a\\\"b.txt\""), "a\"b.txt");
}

TEST(SuggestedNameTest, theExtendedOneGoesBefore)
{
    EXPECT_EQ(nameIn("attachment; filename=\"EURO.txt\"; filename*=utf-8''%e2%82%ac%20rates.txt"), "€ rates.txt");
    EXPECT_EQ(nameIn("attachment; filename*=UTF-8'en'a%2Fb.txt; filename=x"), "b.txt");
}

TEST(SuggestedNameTest, anExtendedOneThatNobodyUnderstandsIsPassedOver)
{
    EXPECT_EQ(nameIn("attachment; filename*=koi8-r''%c1; filename=plain.txt"), "plain.txt");
    EXPECT_EQ(nameIn("attachment; filename*=UTF-8''%ff%fe; filename=plain.txt"), "plain.txt");
    EXPECT_EQ(nameIn("attachment; filename*=nothing; filename=plain.txt"), "plain.txt");
}

TEST(SuggestedNameTest, isNeverAPath)
{
    EXPECT_EQ(nameIn("attachment; filename=\"../../etc/passwd\""), "passwd");
    EXPECT_EQ(nameIn("attachment; filename=\"C:\\\\Windows\\\\evil.dll\""), "evil.dll");
    EXPECT_EQ(nameIn("attachment; filename=\"folder/\""), "");
    EXPECT_EQ(nameIn("attachment; filename=\"..\""), "");
}

TEST(SuggestedNameTest, isNeverHiddenAndEndsInNoDotOrBlank)
{
    EXPECT_EQ(nameIn("attachment; filename=\".bashrc\""), "bashrc");
    EXPECT_EQ(nameIn("attachment; filename=\" . name. . \""), "name");
}

TEST(SuggestedNameTest, holdsNothingThatDeceivesTheEye)
{
    EXPECT_EQ(nameIn(L"attachment; filename=\"a\x202Egnp.exe\""), "agnp.exe");
    EXPECT_EQ(nameIn(L"attachment; filename=\"a\x07\x7f\x85"
                     L"b\""),
        "ab");
}

TEST(SuggestedNameTest, isShortenedBeforeItsEnding)
{
    const std::string name
        = nameIn(kx::String("attachment; filename=") + kx::String(std::wstring(300, L'\xe9')) + ".tar");
    EXPECT_EQ(name.size(), 254u);
    EXPECT_TRUE(name.ends_with("\xc3\xa9.tar"));
}

TEST(SuggestedNameTest, endsInNoDotOrBlankWhereItIsCut)
{
    const std::string letters(250, 'a');
    EXPECT_EQ(nameIn(kx::String::fromUTF8("inline; filename=\"" + letters + std::string(20, ' ') + "bbb\"")), letters);
    EXPECT_EQ(nameIn(kx::String::fromUTF8("inline; filename=\"" + letters + "......" + letters + "\"")), letters);
}

TEST(SuggestedNameTest, isEmptyWhereThereIsNone)
{
    EXPECT_EQ(nameIn(""), "");
    EXPECT_EQ(nameIn("attachment"), "");
    EXPECT_EQ(nameIn("attachment; filename"), "");
    EXPECT_EQ(nameIn("attachment; filename="), "");
    EXPECT_EQ(nameIn("attachment; filename=\"unclosed"), "unclosed");
    EXPECT_EQ(nameIn(";;;=;=\"\\"), "");
    EXPECT_EQ(nameIn(kx::String("attachment; filename=") + kx::String(std::wstring(20'000, L'a'))), "");
}

TEST(SuggestedNameTest, isNoneUnderWhichSomethingIsKnownOfAnotherFile)
{
    EXPECT_EQ(norla::suggestedNameOf("/a.iso.norla-part").toUTF8(), "a.iso.norla-part_");
    EXPECT_EQ(norla::suggestedNameOf("/a.iso%2Enorla-Record").toUTF8(), "a.iso.norla-Record_");
    EXPECT_EQ(nameIn("attachment; filename=\"a.norla-record.new. \""), "a.norla-record.new_");
    const std::string cut = std::string(244, 'a') + ".norla-part";
    EXPECT_EQ(norla::suggestedNameOf("/" + cut + std::string(100, 'b')).toUTF8(), cut.substr(1) + "_");
}

TEST(SuggestedNameTest, isTheLastNameOfAPath)
{
    EXPECT_EQ(norla::suggestedNameOf("/folder/my%20file.txt").toUTF8(), "my file.txt");
    EXPECT_EQ(norla::suggestedNameOf("/folder/").toUTF8(), "");
    EXPECT_EQ(norla::suggestedNameOf("").toUTF8(), "");
    EXPECT_EQ(norla::suggestedNameOf("/a%2Fb").toUTF8(), "b");
    EXPECT_EQ(norla::suggestedNameOf("/%2e%2e").toUTF8(), "");
}

} // namespace
