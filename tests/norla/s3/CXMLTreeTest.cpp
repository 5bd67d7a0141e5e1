#include "norla/s3/CXMLTree.h"

#include "tests/norla/s3/nestedXML.h"
#include "tests/support/errorOf.h"
#include "tests/support/xmlOutline.h"

#include <gtest/gtest.h>
#include <wx/mstream.h>
#include <wx/xml/xml.h>

#include <string>

namespace {

using norla::CXMLTree;

bool isTaken(const std::string& text)
{
    return CXMLTree::parse(text).has_value();
}

std::string outlineOf(const std::string& text)
{
    const auto tree = CXMLTree::parse(text);
    return tree ? support::xmlOutlineOf(tree->getRoot()) : "refused";
}

TEST(CXMLTreeTest, keepsElementsInTheirOrder)
{
    EXPECT_EQ(outlineOf("<a>1<b>2<c/></b>3<b/><d/></a>"), "<a>[1]<b>[2]<c>[]</></><b>[]</><d>[]</></>");
}

TEST(CXMLTreeTest, joinsThePiecesOfAText)
{
    EXPECT_EQ(outlineOf("<a>&lt;x&#228;&gt;\ny\xC3\xA4</a>"), "<a>[<x\xC3\xA4>\ny\xC3\xA4]</>");
}

TEST(CXMLTreeTest, keepsWhiteSpace)
{
    EXPECT_EQ(outlineOf("<a> <b>\n</b>\r\n</a>"), "<a>[ ]<b>[\n]</></>");
}

TEST(CXMLTreeTest, takesTheFirstTextAloneWhereverItStands)
{
    EXPECT_EQ(outlineOf("<a><b/>1<b/>2</a>"), "<a>[1]<b>[]</><b>[]</></>");
    EXPECT_EQ(outlineOf("<a>1<!-- c -->2</a>"), "<a>[1]</>");
    EXPECT_EQ(outlineOf("<a>1<?p i?>2</a>"), "<a>[1]</>");
    EXPECT_EQ(outlineOf("<a>1<![CDATA[2]]></a>"), "<a>[1]</>");
}

TEST(CXMLTreeTest, takesASectionOfCharacterDataForAText)
{
    EXPECT_EQ(outlineOf("<a><![CDATA[<2>\n]]>3</a>"), "<a>[<2>\n]</>");
    EXPECT_EQ(outlineOf("<a><![CDATA[]]>1</a>"), "<a>[]</>");
}

TEST(CXMLTreeTest, knowsTheTextOfAnElementFromThatOfItsChildren)
{
    EXPECT_EQ(outlineOf("<a><b>1</b><b><c>2</c>3</b>4</a>"), "<a>[4]<b>[1]</><b>[3]<c>[2]</></></>");
}

TEST(CXMLTreeTest, readsAsWxWidgetsDoes)
{
    for (const std::string text :
        {"<a/>", "<?xml version=\"1.0\"?><!-- c --><a b=\"1\"><![CDATA[x]]>y<c/></a><!-- d -->",
            "<a>x<b>&amp;</b>y\n\nz<!-- c --> <?p i?>&quot;<![CDATA[]]><![CDATA[1]]>2<b>\xF0\x9F\x98\x80</b></a>",
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><\xe4>\xe4</\xe4>", "\xEF\xBB\xBF<a>\xC3\xA4</a>"}) {
        wxXmlDocument ofWx;
        wxMemoryInputStream bytes(text.data(), text.size());
        ASSERT_TRUE(ofWx.Load(bytes, wxS("UTF-8"), wxXMLDOC_KEEP_WHITESPACE_NODES)) << text;
        EXPECT_EQ(outlineOf(text), support::xmlOutlineOf(*ofWx.GetRoot()));
    }
}

TEST(CXMLTreeTest, refusesWhatIsCutOrBroken)
{
    for (const std::string text : {"", " ", "<a", "<a>", "<a></b>", "<a/><b/>", "&amp;", "<a>&unknown;</a>",
             "<a>\x01</a>", "<a>\xff</a>", "<a/>x", "<a>\xED\xA0\x80</a>", "<a>\xEF\xBF\xBF</a>"})
        EXPECT_FALSE(isTaken(text)) << text;
}

TEST(CXMLTreeTest, knowsUTF16)
{
    EXPECT_EQ(outlineOf(std::string("\xFF\xFE<\0a\0>\0\xE4\0<\0/\0a\0>\0", 18)), "<a>[\xC3\xA4]</>");
}

TEST(CXMLTreeTest, refusesEncodingsThatItDoesNotKnow)
{
    EXPECT_FALSE(isTaken("<?xml version=\"1.0\" encoding=\"x-unknown\"?><a>\xe4</a>"));
}

TEST(CXMLTreeTest, refusesADocumentType)
{
    EXPECT_FALSE(isTaken("<!DOCTYPE a><a/>"));
    EXPECT_FALSE(isTaken("<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>"));
}

TEST(CXMLTreeTest, refusesABombOfEntities)
{
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
    for (int i = 1; i < 60; ++i)
        bomb += "<!ENTITY e" + std::to_string(i) + " \"&e" + std::to_string(i - 1) + ";&e" + std::to_string(i - 1)
            + ";\">";
    EXPECT_FALSE(isTaken(bomb + "]><a>&e59;</a>"));
}

TEST(CXMLTreeTest, takesAHundredElementsInOneAnotherAndNoMore)
{
    EXPECT_TRUE(isTaken(nestedXML(100)));
    EXPECT_FALSE(isTaken(nestedXML(101)));
    EXPECT_FALSE(isTaken(nestedXML(1'000'000)));
    EXPECT_FALSE(isTaken(repeated("<a>", 100) + "<b/>" + repeated("</a>", 100)));
}

TEST(CXMLTreeTest, countsDepthAndNotElements)
{
    EXPECT_TRUE(isTaken("<a>" + repeated("<b/>", 1000) + "</a>"));
}

// These take minutes where every piece is added to a copy of what came before.
TEST(CXMLTreeTest, takesATextOfAnyNumberOfPieces)
{
    EXPECT_EQ(outlineOf("<a>" + repeated("&#38;", 500'000) + "</a>"), "<a>[" + std::string(500'000, '&') + "]</>");
}

TEST(CXMLTreeTest, takesAnyNumberOfAttributes)
{
    std::string element = "<a";
    for (int i = 0; i < 50'000; ++i)
        element += " b" + std::to_string(i) + "=''";
    EXPECT_TRUE(isTaken(element + "/>"));
}

TEST(CXMLTreeTest, takesNoMoreElementsThanItMay)
{
    EXPECT_TRUE(CXMLTree::parse("<a><b/><c/></a>", 3));
    EXPECT_EQ(support::messageOf([] { CXMLTree::parse("<a><b/><c/></a>", 2); }), "more than 2 elements");
}

TEST(CXMLTreeTest, takesLongTokens)
{
    const std::string token(16 << 20, 'x');
    EXPECT_TRUE(isTaken("<a><!--" + token + "--></a>"));
    EXPECT_TRUE(isTaken("<" + token + "/>"));
    EXPECT_TRUE(isTaken("<a b='" + token + "'/>"));
    EXPECT_FALSE(isTaken("<a>&" + token + ";</a>"));
    EXPECT_FALSE(isTaken("<a><!--" + token));
    EXPECT_FALSE(isTaken(token));
    EXPECT_EQ(outlineOf("<a>" + token + "</a>"), "<a>[" + token + "]</>");
}

TEST(CXMLTreeTest, mayBeMoved)
{
    auto tree = CXMLTree::parse("<a><b>1</b></a>");
    const CXMLTree moved = std::move(*tree);
    EXPECT_EQ(support::xmlOutlineOf(moved.getRoot()), "<a>[]<b>[1]</></>");
}

} // namespace
