#include "norla/http/util.h"

#include <gtest/gtest.h>

namespace {

struct CAddressRow {
    const char* name;
    const wchar_t* address;
};

std::string nameOf(const testing::TestParamInfo<CAddressRow>& row)
{
    return row.param.name;
}

class GoodEmailAddressTest : public testing::TestWithParam<CAddressRow> {};

TEST_P(GoodEmailAddressTest, isTaken)
{
    EXPECT_TRUE(norla::isValidEmailAddress(GetParam().address));
}

INSTANTIATE_TEST_SUITE_P(All, GoodEmailAddressTest,
    testing::ValuesIn(std::vector<CAddressRow>{
        {"usual", L"user@example.org"},
        {"dotsInLocalPart", L".first..last.@example.org"},
        {"domainStartsWithDot", L"user@.org"},
        {"domainEndsWithDot", L"user@org."},
        {"domainOfOneDot", L"user@."},
        {"letters", L"j\u00F6rg@b\u00FCcher.example"},
        {"otherScripts", L"\u7528\u6237@\u4F8B\u5B50.\u5E7F\u544A"},
        {"punctuation", L"!#$%&'*+-/=?^_`{|}~,;:()[]\\@x.y"},
        {"noControlByASCII", L"a\u007F\u0080\u00A0b@x.y"},
    }),
    nameOf);

class BadEmailAddressTest : public testing::TestWithParam<CAddressRow> {};

TEST_P(BadEmailAddressTest, isRefused)
{
    EXPECT_FALSE(norla::isValidEmailAddress(GetParam().address));
}

INSTANTIATE_TEST_SUITE_P(All, BadEmailAddressTest,
    testing::ValuesIn(std::vector<CAddressRow>{
        {"empty", L""},
        {"noAtSign", L"user.example.org"},
        {"atSignAlone", L"@"},
        {"atSignFirst", L"@example.org"},
        {"atSignFirstAndLater", L"@user@example.org"},
        {"twoAtSigns", L"a@b@example.org"},
        {"twoAtSignsInARow", L"a@@example.org"},
        {"noDomain", L"user@"},
        {"noDotBehindAtSign", L"first.last@example"},
        {"space", L"a b@example.org"},
        {"spaceFirst", L" user@example.org"},
        {"spaceLast", L"user@example.org "},
        {"tab", L"user@example.org\t"},
        {"lineFeed", L"user@example.org\nBcc: all@example.org"},
        {"lastControl", L"user\u001F@example.org"},
        {"quote", L"\"user\"@example.org"},
        {"openBracket", L"<user@example.org"},
        {"closeBracket", L"user@example.org>"},
        {"brackets", L"<user@example.org>"},
    }),
    nameOf);

TEST(EmailAddressTest, withANulCharacterIsRefused)
{
    EXPECT_FALSE(norla::isValidEmailAddress(kx::String(std::wstring(L"us\0er@example.org", 17))));
}

} // namespace
