#include "norla/s3/CS3XMLWriter.h"

#include "kx/base/CError.h"
#include "norla/s3/CXMLTree.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using norla::CS3XMLWriter;

TEST(CS3XMLWriterTest, writesElementsInElements)
{
    CS3XMLWriter writer("Delete");
    writer.begin("Object");
    writer.add("Key", "a");
    writer.end();
    writer.begin("Object");
    writer.add("Key", "");
    EXPECT_EQ(writer.finish(),
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Delete xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
        "<Object><Key>a</Key></Object><Object><Key></Key></Object></Delete>");
}

TEST(CS3XMLWriterTest, writesTextThatParsersReadAsItWas)
{
    const std::vector<std::string> texts{"<a>&amp;\"'</a>", " a ", "\t", "a\rb\nc\r\nd", "\n", "]]>", "&#1;",
        "\xC3\xA4\xF0\x9F\x98\x80\x7F\xC2\x85\xE2\x80\xA8"};
    for (const std::string& text : texts) {
        CS3XMLWriter writer("Key");
        writer.add("Text", kx::String::fromUTF8(text));
        const auto tree = norla::CXMLTree::parse(writer.finish());
        ASSERT_TRUE(tree) << text;
        tree->getRoot().forEachElement(
            [&](const norla::CXMLElement& element) { EXPECT_EQ(element.getText(), kx::String::fromUTF8(text)); });
    }
}

TEST(CS3XMLWriterTest, refusesWhatXMLHasNoWayToWrite)
{
    std::vector<std::wstring> texts{L"a\x1", L"\xfffe", L"\xffff", L"\xd800", L"\xdfff", {L'a', L'\0'}, L"\x1f"};
    texts.push_back({static_cast<wchar_t>(0x110000)});
    for (const std::wstring& text : texts) {
        EXPECT_FALSE(CS3XMLWriter::canWrite(kx::String(text)));
        CS3XMLWriter writer("Key");
        const size_t size = writer.getSize();
        EXPECT_THROW(writer.add("Text", kx::String(text)), kx::CError);
        EXPECT_EQ(writer.getSize(), size);
    }
    EXPECT_EQ(support::messageOf([] { CS3XMLWriter("Key").add("Text", "a\x01"); }),
        "XML has no way to write the text 'a\x01'.");
    EXPECT_TRUE(CS3XMLWriter::canWrite(kx::String(std::wstring(L" \t\r\n\x7f\xd7ff\xe000\xfffd"))));
}

} // namespace
