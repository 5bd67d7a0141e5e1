#include "norla/http/CHeaderAssembler.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/http/CServerInfo.h"

#include <gtest/gtest.h>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

class CHeaderAssemblerTest : public testing::Test {
protected:
    void handle(std::initializer_list<const char*> lines)
    {
        for (const char* const line : lines)
            m_assembler.handleHeaderLine(kx::String::fromLatin1(line));
    }

    const Map& map() const { return m_assembler.getHeaderMap(); }

    kx::String messageOf(const char* line)
    {
        try {
            m_assembler.handleHeaderLine(kx::String::fromLatin1(line));
        } catch (const kx::CError& error) {
            EXPECT_EQ(error.getDomain(), "");
            EXPECT_EQ(error.getCode(), -1);
            return error.getMessage();
        }
        return "";
    }

    norla::CHeaderAssembler m_assembler;
};

TEST_F(CHeaderAssemblerTest, storesTheValueUnderTheLowerCasedName)
{
    handle({"Content-Type: text/html\r\n"});
    EXPECT_EQ(map(), (Map{{"content-type", "text/html"}}));
}

TEST_F(CHeaderAssemblerTest, joinsRepeatedHeaders)
{
    handle({"Via: a\r\n", "VIA: b\r\n"});
    EXPECT_EQ(map(), (Map{{"via", "a,b"}}));
}

TEST_F(CHeaderAssemblerTest, replacesAnEmptyValue)
{
    handle({"X-Empty:\r\n", "X-Empty: v\r\n"});
    EXPECT_EQ(map(), (Map{{"x-empty", "v"}}));
}

TEST_F(CHeaderAssemblerTest, appendsAnEmptyValue)
{
    handle({"X-A: v\r\n", "X-A:\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "v,"}}));
}

TEST_F(CHeaderAssemblerTest, joinsContinuationLines)
{
    handle({"X-Long: part1\r\n", " part2\r\n", "\tpart3\r\n"});
    EXPECT_EQ(map(), (Map{{"x-long", "part1 part2 part3"}}));
}

TEST_F(CHeaderAssemblerTest, takesAnyWhiteSpaceForTheBeginningOfAContinuation)
{
    handle({"X-Long: a\r\n", "\rb\r\n", "\vc\r\n", "\fd\r\n", "\ne\r\n", "\r \v\ff\r\n"});
    EXPECT_EQ(map(), (Map{{"x-long", "a b c d e f"}}));
}

TEST_F(CHeaderAssemblerTest, takesNoOtherControlCharacterForTheBeginningOfAContinuation)
{
    handle({"X-A: a\r\n", "\x1fX-B: b\r\n", "\bX-C: c\r\n", "\x0eX-D: d\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a"}, {"\x1fx-b", "b"}, {"\bx-c", "c"}, {"\x0ex-d", "d"}}));
}

TEST_F(CHeaderAssemblerTest, continuesTheLastHeaderOfSeveral)
{
    handle({"X-A: a\r\n", "X-B: b\r\n", " more\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a"}, {"x-b", "b more"}}));
}

TEST_F(CHeaderAssemblerTest, continuesTheJoinedValueOfARepeatedHeader)
{
    handle({"X-A: a\r\n", "X-B: b\r\n", "X-A: c\r\n", " d\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a,c d"}, {"x-b", "b"}}));
}

TEST_F(CHeaderAssemblerTest, refusesAContinuationAtTheStart)
{
    EXPECT_EQ(messageOf(" folded\r\n"), "Error parsing HTTP header: first line starts with whitespace.");
    EXPECT_EQ(map(), Map());
}

TEST_F(CHeaderAssemblerTest, refusesAContinuationAfterReset)
{
    handle({"X-A: a\r\n"});
    m_assembler.reset();
    EXPECT_EQ(messageOf("\tfolded\r\n"), "Error parsing HTTP header: first line starts with whitespace.");
}

TEST_F(CHeaderAssemblerTest, refusesALineWithoutColonAndKeepsWhatItHas)
{
    handle({"X-A: a\r\n"});
    EXPECT_EQ(
        messageOf("nonsense\r\n"), "Invalid argument passed to 'CNetHeaders::splitEntry': entry contains no ':'.");
    handle({" more\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a more"}}));
}

TEST_F(CHeaderAssemblerTest, refusesALineWithoutName)
{
    EXPECT_EQ(messageOf(": value\r\n"), "Invalid argument passed to 'CNetHeaders::splitEntry': name is empty.");
}

TEST_F(CHeaderAssemblerTest, refusesAnEmptyLineWithoutLineEnd)
{
    EXPECT_EQ(messageOf(""), "Invalid argument passed to 'CNetHeaders::splitEntry': entry contains no ':'.");
}

TEST_F(CHeaderAssemblerTest, ignoresWhatFollowsTheEmptyLine)
{
    handle({"X-A: a\r\n", "\r\n", "X-Late: 1\r\n", "nonsense\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a"}}));
}

TEST_F(CHeaderAssemblerTest, takesABareLineFeedForAContinuation)
{
    handle({"X-A: a\r\n", "\n", "X-B: b\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "a "}, {"x-b", "b"}}));
}

TEST_F(CHeaderAssemblerTest, startsAgainAfterReset)
{
    handle({"X-A: a\r\n", "\r\n"});
    m_assembler.reset();
    handle({"X-B: b\r\n"});
    EXPECT_EQ(map(), (Map{{"x-b", "b"}}));
}

TEST_F(CHeaderAssemblerTest, keepsNoValueOfTheLastResponse)
{
    handle({"X-A: long enough to be on the heap\r\n", "X-B: b\r\n", "\r\n"});
    m_assembler.reset();
    handle({"X-C: c\r\n", "x-a: new\r\n", "X-A: more\r\n", "X-B:\r\n", " folded\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "new,more"}, {"x-b", " folded"}, {"x-c", "c"}}));
}

TEST_F(CHeaderAssemblerTest, isEmptyAfterAResponseWithoutHeaders)
{
    handle({"X-A: a\r\n", "\r\n"});
    m_assembler.reset();
    handle({"\r\n"});
    m_assembler.reset();
    EXPECT_EQ(map(), Map());
    handle({"X-A: b\r\n"});
    EXPECT_EQ(map(), (Map{{"x-a", "b"}}));
}

TEST_F(CHeaderAssemblerTest, tellsTheServerInfoAtTheEmptyLineOnly)
{
    const auto info = kx::newObj<norla::CServerInfo>();
    m_assembler.setServerInfoToUpdate(info.get());
    handle({"Server: nginx\r\n"});
    EXPECT_EQ(info->getServerHeader(), "");
    handle({"\r\n"});
    EXPECT_EQ(info->getServerHeader(), "nginx");
}

TEST_F(CHeaderAssemblerTest, keepsTheServerInfoOverAReset)
{
    const auto info = kx::newObj<norla::CServerInfo>();
    m_assembler.setServerInfoToUpdate(info.get());
    m_assembler.reset();
    handle({"Server: nginx\r\n", "\r\n"});
    EXPECT_EQ(info->getServerHeader(), "nginx");
}

} // namespace
