#include "norla/core/CNetStringList.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

std::vector<kx::String> textsOf(const norla::CNetStringList& list)
{
    std::vector<kx::String> texts;
    for (const auto text = list.createIterator(); text->next();)
        texts.push_back(text->getCurrent());
    return texts;
}

TEST(CNetStringListTest, isEmptyAtFirst)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    EXPECT_TRUE(list->isEmpty());
    EXPECT_EQ(list->getCurlList(), nullptr);
    EXPECT_FALSE(list->createIterator()->next());
}

TEST(CNetStringListTest, keepsTheOrderOfAdding)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add("one");
    list->add("two");
    list->add("three");
    EXPECT_EQ(textsOf(*list), (std::vector<kx::String>{"one", "two", "three"}));
}

TEST(CNetStringListTest, givesTextsOutsideASCIIBackUnchanged)
{
    const kx::String text = L"Gr\u00FC\u00DFe \U0001F680";
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add(text);
    EXPECT_EQ(textsOf(*list), std::vector<kx::String>{text});
}

TEST(CNetStringListTest, handsUTF8ToLibcurl)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add(L"\u00FC");
    EXPECT_STREQ(list->getCurlList()->data, "\xC3\xBC");
}

TEST(CNetStringListTest, keepsAnEmptyText)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add("");
    EXPECT_EQ(textsOf(*list), std::vector<kx::String>{""});
}

// Leaves no zero on the stack below, where a text without its end would find one by chance.
[[gnu::noinline]] void soilStack()
{
    volatile char stack[16 * 1024];
    for (volatile char& byte : stack)
        byte = 'z';
}

class CTextOfSizeTest : public testing::TestWithParam<size_t> {};

TEST_P(CTextOfSizeTest, isKeptToItsLastByteAndNoFurther)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    const std::string text = std::string(GetParam() - 1, 'x') + "y";
    soilStack();
    list->addUTF8(text);
    EXPECT_EQ(list->getCurlList()->data, text);
}

INSTANTIATE_TEST_SUITE_P(All, CTextOfSizeTest, testing::Values(1, 254, 255, 256, 257, 511, 512, 513, 100'000),
    testing::PrintToStringParamName());

TEST(CNetStringListTest, refusesATextWithAZeroCharacter)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    EXPECT_THROW(list->add(kx::String(std::wstring(L"a\0b", 3))), kx::CInvalidArgError);
    EXPECT_TRUE(list->isEmpty());
}

TEST(CNetStringListTest, keepsTheOrderOfTextsInEitherForm)
{
    norla::CNetStringList list;
    list.addUTF8("1");
    EXPECT_FALSE(list.isEmpty());
    list.add("2");
    list.addUTF8("");
    list.addUTF8("4");
    const auto iterator = list.createIterator();
    for (const char* const expected : {"1", "2", "", "4"}) {
        ASSERT_TRUE(iterator->next());
        EXPECT_EQ(iterator->getCurrent(), kx::String::fromLatin1(expected));
    }
    EXPECT_FALSE(iterator->next());
}

TEST(CNetStringListTest, asksLibcurlForMemoryWhenSomebodyReadsWhatWasAddedAsBytes)
{
    support::CCurlCalls calls;
    norla::CNetStringList list;
    list.addUTF8("1");
    list.addUTF8("2");
    EXPECT_EQ(calls.countOf("curl_slist_append"), 0);
    list.getCurlList();
    list.getCurlList();
    EXPECT_EQ(calls.countOf("curl_slist_append"), 2);
}

TEST(CNetStringListTest, losesNothingWhenMemoryRunsOutForTheReader)
{
    support::CCurlCalls calls;
    norla::CNetStringList list;
    list.addUTF8("1");
    list.addUTF8("2");
    calls.fail("curl_slist_append", 1);
    EXPECT_THROW(list.createIterator(), norla::CCURLError);
    calls.succeed();
    const auto iterator = list.createIterator();
    EXPECT_TRUE(iterator->next());
    EXPECT_EQ(iterator->getCurrent(), "1");
    EXPECT_TRUE(iterator->next());
    EXPECT_EQ(iterator->getCurrent(), "2");
    EXPECT_FALSE(iterator->next());
}

TEST(CNetStringListTest, iteratorCanStartAgain)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add("one");
    const auto text = list->createIterator();
    EXPECT_TRUE(text->next());
    text->reset();
    EXPECT_EQ(text->getCurrent(), "");
    EXPECT_TRUE(text->next());
    EXPECT_EQ(text->getCurrent(), "one");
}

TEST(CNetStringListTest, iteratorIsEmptyAtTheEndAndStaysThere)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add("one");
    const auto text = list->createIterator();
    EXPECT_TRUE(text->next());
    EXPECT_FALSE(text->next());
    EXPECT_EQ(text->getCurrent(), "");
    EXPECT_FALSE(text->next());
}

TEST(CNetStringListTest, staysAsItWasWhenMemoryRunsOut)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    list->add("one");
    support::CCurlCalls calls;
    calls.fail("curl_slist_append");
    try {
        list->add("two");
        FAIL() << "no error";
    } catch (const norla::CCURLError& error) {
        EXPECT_EQ(error.getDomain(), "curl");
        EXPECT_EQ(error.getCode(), CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(error.getMessage(), "Out of memory: a text could not be added to a list for libcurl");
    }
    calls.succeed();
    list->add("three");
    EXPECT_EQ(textsOf(*list), (std::vector<kx::String>{"one", "three"}));
}

TEST(CNetStringListTest, addsManyTextsInTimeThatGrowsWithTheirNumber)
{
    // Walking the list on each call would take minutes here, and the test its time limit.
    const auto list = kx::newObj<norla::CNetStringList>();
    for (int i = 0; i < 300'000; ++i)
        list->add("x");
    EXPECT_EQ(textsOf(*list).size(), 300'000u);
}

} // namespace
