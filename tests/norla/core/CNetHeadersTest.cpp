#include "norla/core/CNetHeaders.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/containers/TArray.h"
#include "tests/support/errorOf.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

Map mapOf(norla::CNetHeaders& headers)
{
    Map map;
    headers.fillMap(map);
    return map;
}

void expectSplitError(const kx::String& entry, const kx::String& message)
{
    kx::String name, value;
    try {
        norla::CNetHeaders::splitEntry(entry, name, value);
        FAIL() << "no error for '" << entry << "'";
    } catch (const kx::CInvalidArgError& error) {
        EXPECT_EQ(error.getMessage(), message);
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
    }
}

TEST(CNetHeadersTest, storesTheLineWithoutSurroundingBlanks)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("  Content-Type ", " text/plain\t");
    EXPECT_STREQ(headers->getCurlList()->data, "Content-Type: text/plain");
}

TEST(CNetHeadersTest, keepsTheColonAndTheBlankOfAnEmptyValue)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Empty", "  ");
    EXPECT_STREQ(headers->getCurlList()->data, "X-Empty: ");
}

TEST(CNetHeadersTest, hasNoListForLibcurlWhileEmpty)
{
    EXPECT_EQ(kx::newObj<norla::CNetHeaders>()->getCurlList(), nullptr);
}

TEST(CNetHeadersTest, splitsAtTheFirstColonOnly)
{
    kx::String name, value;
    norla::CNetHeaders::splitEntry("Host: server:8080", name, value);
    EXPECT_EQ(name, "Host");
    EXPECT_EQ(value, "server:8080");
}

TEST(CNetHeadersTest, splitsWithoutSurroundingWhiteSpace)
{
    kx::String name, value;
    norla::CNetHeaders::splitEntry(" Name\t:\v value \r\n", name, value);
    EXPECT_EQ(name, "Name");
    EXPECT_EQ(value, "value");
}

TEST(CNetHeadersTest, splitsAnEmptyValue)
{
    kx::String name, value = "old";
    norla::CNetHeaders::splitEntry("Name:", name, value);
    EXPECT_EQ(name, "Name");
    EXPECT_EQ(value, "");
}

TEST(CNetHeadersTest, splitsALineThatIsAnOutputItself)
{
    kx::String line = "Name: value", value;
    norla::CNetHeaders::splitEntry(line, line, value);
    EXPECT_EQ(line, "Name");
    EXPECT_EQ(value, "value");
}

TEST(CNetHeadersTest, refusesALineWithoutColon)
{
    expectSplitError("no colon", "Invalid argument passed to 'CNetHeaders::splitEntry': entry contains no ':'.");
}

TEST(CNetHeadersTest, refusesALineWithoutName)
{
    expectSplitError(" : value", "Invalid argument passed to 'CNetHeaders::splitEntry': name is empty.");
}

TEST(CNetHeadersTest, joinsRepeatedNamesInLineOrder)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "1");
    headers->add("x-a", "2");
    EXPECT_EQ(mapOf(*headers), (Map{{"x-a", "1,2"}}));
}

TEST(CNetHeadersTest, joinsAnEmptyValueToo)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "");
    headers->add("X-A", "2");
    EXPECT_EQ(mapOf(*headers), (Map{{"x-a", ",2"}}));
}

TEST(CNetHeadersTest, addsToWhatTheMapHolds)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "2");
    Map map{{"x-a", "1"}, {"x-b", "left"}};
    headers->fillMap(map);
    EXPECT_EQ(map, (Map{{"x-a", "1,2"}, {"x-b", "left"}}));
}

TEST(CNetHeadersTest, writesAnEmptyHeaderThatIsSentAsLibcurlWantsIt)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->addEmpty("  X-Empty\t");
    EXPECT_STREQ(headers->getCurlList()->data, "X-Empty;");
}

TEST(CNetHeadersTest, knowsAnEmptyHeaderThatIsSent)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->addEmpty("X-Empty");
    headers->add("X-A", "1");
    EXPECT_EQ(mapOf(*headers), (Map{{"x-a", "1"}, {"x-empty", ""}}));
}

TEST(CNetHeadersTest, doesNotSplitTheLineOfAnEmptyHeaderThatIsSent)
{
    expectSplitError("X-Empty;", "Invalid argument passed to 'CNetHeaders::splitEntry': entry contains no ':'.");
}

TEST(CNetHeadersTest, refusesWhatIsNoNameOfAnEmptyHeader)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    for (const kx::String& name : kx::TArray<kx::String>{"", " ", "a:b", "a;b", "a;", "a\rb", "a\nb"})
        EXPECT_EQ(support::messageOf([&] { headers->addEmpty(name); }),
            "Invalid argument passed to 'CNetHeaders::addEmpty': '" + name + "' is not the name of a header.");
    EXPECT_EQ(headers->getCurlList(), nullptr);
}

TEST(CNetHeadersTest, sendsTheEmptyHeadersOfOneKindOnDemand)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Mine-A", "");
    headers->add("x-mine-b", "2");
    headers->add("X-Other", "");
    headers->add("X-MINE", "");
    const curl_slist* const first = headers->getCurlList();
    const Map before = mapOf(*headers);
    headers->sendEmpty("x-Mine-");
    EXPECT_EQ(headers->getCurlList(), first);
    EXPECT_STREQ(first->data, "X-Mine-A;");
    EXPECT_STREQ(first->next->data, "x-mine-b: 2");
    EXPECT_STREQ(first->next->next->data, "X-Other: ");
    EXPECT_STREQ(first->next->next->next->data, "X-MINE: ");
    EXPECT_EQ(mapOf(*headers), before);
}

TEST(CNetHeadersTest, iteratesOverNamesAndValues)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "1");
    const auto line = headers->createIterator();
    EXPECT_TRUE(line->next());
    EXPECT_EQ(line->getName(), "X-A");
    EXPECT_EQ(line->getValue(), "1");
}

TEST(CNetHeadersTest, iteratorIsEmptyAtTheEnd)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "1");
    const auto line = headers->createIterator();
    line->next();
    EXPECT_FALSE(line->next());
    EXPECT_EQ(line->getName(), "");
    EXPECT_EQ(line->getValue(), "");
}

TEST(CNetHeadersTest, iteratorCanStartAgain)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", "1");
    const auto line = headers->createIterator();
    line->next();
    line->reset();
    EXPECT_EQ(line->getName(), "");
    EXPECT_TRUE(line->next());
    EXPECT_EQ(line->getName(), "X-A");
}

TEST(CNetHeadersTest, keepsTextOutsideASCII)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Name", L"J\u00F6rg \U0001F680");
    EXPECT_EQ(mapOf(*headers), (Map{{"x-name", L"J\u00F6rg \U0001F680"}}));
}

} // namespace
