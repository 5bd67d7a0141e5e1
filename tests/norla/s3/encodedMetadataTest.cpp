#include "norla/s3/encodedMetadata.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using norla::decodeMetadata;
using norla::encodeMetadata;

TEST(encodedMetadataTest, sendsASCIIAsItIs)
{
    for (const char* const value : {"", "plain", "a  b", "a=b?c", "~!\"#$%&'()*+,-./:;<=>?@[]^_`{|}"})
        EXPECT_EQ(encodeMetadata(kx::String::fromLatin1(value)), kx::String::fromLatin1(value));
}

TEST(encodedMetadataTest, encodesWhatAHeaderWouldNotKeep)
{
    EXPECT_EQ(encodeMetadata(L"Zo\xEB"), "=?UTF-8?B?Wm/Dqw==?=");
    EXPECT_EQ(encodeMetadata(" a"), "=?UTF-8?B?IGE=?=");
    EXPECT_EQ(encodeMetadata("a "), "=?UTF-8?B?YSA=?=");
    EXPECT_EQ(encodeMetadata("=?UTF-8?B?YQ==?="), "=?UTF-8?B?PT9VVEYtOD9CP1lRPT0/PQ==?=");
}

TEST(encodedMetadataTest, makesWordsOfWholeCharactersThatAreNoLongerThanAWordMayBe)
{
    const kx::String value(std::wstring(100, L'\x1F600'));
    const kx::String encoded = encodeMetadata(value);
    for (size_t start = 0; start < encoded.size();) {
        const size_t end = std::min(encoded.find(L' ', start), encoded.size());
        const kx::String word = encoded.substr(start, end - start);
        EXPECT_LE(word.size(), 75U);
        EXPECT_NE(decodeMetadata(word), word); // by itself
        start = end + 1;
    }
    EXPECT_EQ(decodeMetadata(encoded), value);
}

TEST(encodedMetadataTest, hasNoWordsForWhatIsNoText)
{
    EXPECT_THROW(encodeMetadata(kx::String(std::wstring(1, static_cast<wchar_t>(0xD800)))), kx::CError);
}

TEST(encodedMetadataTest, readsWhatOthersWrite)
{
    EXPECT_EQ(decodeMetadata("=?utf-8?q?Zo=C3=ab_x?="), L"Zo\xEB x");
    EXPECT_EQ(decodeMetadata("=?ISO-8859-1?Q?Zo=EB?="), L"Zo\xEB");
    EXPECT_EQ(decodeMetadata("=?US-ASCII*en?B?YQ==?="), "a");
    EXPECT_EQ(decodeMetadata("a =?UTF-8?B?Yg==?= c"), "a b c");
    EXPECT_EQ(decodeMetadata("=?UTF-8?B?w6s=?=,x"), L"\xEB,x");
}

TEST(encodedMetadataTest, joinsWordsWithoutTheBlanksBetweenThemAlsoWithinACharacter)
{
    EXPECT_EQ(decodeMetadata("=?UTF-8?B?ww==?= \t =?UTF-8?B?qw==?="), L"\xEB");
}

TEST(encodedMetadataTest, leavesAloneWhatIsNoWord)
{
    const std::vector<std::string> values{"=?", "=?UTF-8", "=?UTF-8?", "=?UTF-8?B", "=?UTF-8?B?",
        "=?UTF-8?B?YQ==", "=?UTF-8?B?YQ==?", "=?UTF-8?B?*?=", "=?UTF-8?X?YQ==?=", "=?KOI8-R?B?YQ==?=", "=?UTF-8?Q?=4?=",
        "=?UTF-8?Q?=XY?=", "=?UTF-8?B?ww==?="};
    for (const std::string& value : values)
        EXPECT_EQ(decodeMetadata(kx::String::fromLatin1(value)), kx::String::fromLatin1(value));
}

} // namespace
