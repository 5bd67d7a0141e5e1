// Python's codec says what is UTF-8.
#include "kx/base/CError.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Path = kx::TPathImpl<kx::CUnixPathTraits>;

class UTF8JudgeTest : public testing::Test {
protected:
    static std::vector<std::vector<std::string>> rowsOf(const std::string& what)
    {
        return rows::fromScript(NORLA_KX_TESTS_DIR "/text/utf8_rows.py", {what});
    }

    /// The text of a field in UTF-32, big endian.
    static std::wstring wideOf(const std::string& hex)
    {
        std::wstring text;
        for (size_t i = 0; i < hex.size(); i += 8)
            text += static_cast<wchar_t>(std::stoul(hex.substr(i, 8), nullptr, 16));
        return text;
    }

    /// The message of what fromUTF8() throws; that of the position -1 when it throws nothing.
    static std::string messageFor(const std::string& bytes)
    {
        try {
            kx::String::fromUTF8(bytes);
        } catch (const kx::CError& error) {
            return error.getMessage().toUTF8();
        }
        return messageAt("-1");
    }

    static std::string messageAt(const std::string& position)
    {
        return "Text is not valid UTF-8 at byte " + position + ".";
    }
};

TEST_F(UTF8JudgeTest, everyCodePointIsEncodedAndDecodedAlike)
{
    const auto blocks = rowsOf("characters");
    EXPECT_EQ(blocks.size(), 0x110u);
    for (const auto& row : blocks) {
        const std::wstring text = wideOf(row.at(0));
        const std::string bytes = rows::bytesOf(row.at(1));
        EXPECT_TRUE(kx::String(text).toUTF8() == bytes) << "from U+" << row.at(0).substr(0, 8);
        EXPECT_TRUE(kx::String::fromUTF8(bytes).toWide() == text) << "from U+" << row.at(0).substr(0, 8);
    }
}

TEST_F(UTF8JudgeTest, theSameBytesDoNotBelong)
{
    const auto sequences = rowsOf("sequences");
    EXPECT_GT(sequences.size(), 80'000u);
    for (const auto& row : sequences) {
        const std::string bytes = rows::bytesOf(row.at(0));
        EXPECT_EQ(messageFor(bytes), messageAt(row.at(1))) << row.at(0);
    }
}

TEST_F(UTF8JudgeTest, aPathKeepsTheSameBytes)
{
    for (const auto& row : rowsOf("sequences")) {
        const auto path = Path::fromBytes(rows::bytesOf(row.at(0)));
        EXPECT_EQ(path.toString(), kx::String(wideOf(row.at(2)))) << row.at(0);
        EXPECT_EQ(path.toBytes(), rows::bytesOf(row.at(0))) << row.at(0);
    }
}

} // namespace
