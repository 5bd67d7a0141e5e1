// The samples and the table of docs/text.md.
#include "docs/text/samples.h"
#include "kx/text/CURI.h"
#include "norla/http/util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

TEST(TextPageTest, takesBytesForUTF8OrElseForLatin1)
{
    EXPECT_EQ(textOf("Gr\xC3\xBC\xC3\x9F"
                     "e"),
        u8"Grüße");
    EXPECT_EQ(textOf("Gr\xFC\xDF"
                     "e"),
        u8"Grüße");
}

TEST(TextPageTest, tellsNumbersWithoutGrouping)
{
    EXPECT_EQ(countText(3, 1000), "3 of 1000 files");
}

TEST(TextPageTest, bringsAnyNameToTheSystemAndBack)
{
    const std::filesystem::path folder("/tmp/caf\xE9");
    const auto place = placeOf(folder, u8"Grüße");
    EXPECT_EQ(systemPathOf(place).native(),
        "/tmp/caf\xE9/Gr\xC3\xBC\xC3\x9F"
        "e");
    EXPECT_EQ(shownPathOf(place),
        "/tmp/caf\xEF\xBF\xBD/Gr\xC3\xBC\xC3\x9F"
        "e");
}

TEST(TextPageTest, makesAddresses)
{
    EXPECT_EQ(fileURL("host", u8"/café/50% off.txt"), "https://host/caf%C3%A9/50%25%20off.txt");
    EXPECT_EQ(questionURL("host", u8"Müller & Co"), "https://host/find?name=M%c3%bcller+%26+Co");
}

std::string rowOf(const std::string& call, const kx::String& result)
{
    return "| `" + call + "` | `" + result.toUTF8() + "` |";
}

TEST(TextPageTest, showsWhatEachFunctionEscapes)
{
    std::ifstream in(NORLA_DOCS_DIR "/text.md");
    const std::string page = (std::ostringstream() << in.rdbuf()).str();
    const kx::String t = u8"a b/ü+~";
    const auto request = kx::newObj<norla::CNetRequest>();
    for (const auto& row : {
             rowOf("norla::formURLEncode(t, false)", norla::formURLEncode(t, false)),
             rowOf("norla::formURLEncode(t, true)", norla::formURLEncode(t, true)),
             rowOf("norla::urlEscape(t, false)", norla::urlEscape(t, false)),
             rowOf("norla::urlEscape(t, true)", norla::urlEscape(t, true)),
             rowOf("request->urlEscape(t)", request->urlEscape(t)),
             rowOf("kx::CURI::escape(t, false, \"\")", kx::CURI::escape(t, false, "")),
             rowOf("kx::CURI::escape(t, true, \"\")", kx::CURI::escape(t, true, "")),
         })
        EXPECT_THAT(page, testing::HasSubstr(row));
}

} // namespace
