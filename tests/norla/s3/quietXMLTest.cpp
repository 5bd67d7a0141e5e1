#include "norla/s3/quietXML.h"

#include "tests/norla/s3/nestedXML.h"
#include "tests/support/xmlOutline.h"

#include <gtest/gtest.h>
#include <wx/mstream.h>
#include <wx/xml/xml.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

namespace {

bool load(wxXmlDocument& document, const std::string& text)
{
    wxMemoryInputStream bytes(text.data(), text.size());
    return norla::loadQuietly(document, bytes);
}

bool isTaken(const std::string& text)
{
    wxXmlDocument document;
    return load(document, text);
}

std::string outlineOf(const wxXmlDocument& document)
{
    return support::xmlOutlineOf(*document.GetDocumentNode());
}

std::string outlineOf(const std::string& text)
{
    wxXmlDocument document;
    return load(document, text) ? outlineOf(document) : "refused";
}

TEST(QuietXMLTest, keepsElementsAndTextsInTheirOrder)
{
    EXPECT_EQ(outlineOf("<a>1<b>2<c/></b>3<b/></a>"), "<a>[1]<b>[2]<c></></>[3]<b></></>");
}

TEST(QuietXMLTest, joinsThePiecesOfAText)
{
    EXPECT_EQ(outlineOf("<a>&lt;x&#228;&gt;\ny\xC3\xA4</a>"), "<a>[<x\xC3\xA4>\ny\xC3\xA4]</>");
}

TEST(QuietXMLTest, keepsWhiteSpace)
{
    EXPECT_EQ(outlineOf("<a> <b>\n</b>\r\n</a>"), "<a>[ ]<b>[\n]</>[\n]</>");
}

TEST(QuietXMLTest, keepsASectionOfCharacterDataApart)
{
    EXPECT_EQ(outlineOf("<a>1<![CDATA[<2>\n]]>3</a>"), "<a>[1]{<2>\n}[3]</>");
}

TEST(QuietXMLTest, keepsAnEmptySectionOfCharacterData)
{
    EXPECT_EQ(outlineOf("<a><![CDATA[]]>1</a>"), "<a>{}[1]</>");
}

TEST(QuietXMLTest, endsATextAtAComment)
{
    EXPECT_EQ(outlineOf("<a>1<!-- c -->2</a>"), "<a>[1][2]</>");
}

TEST(QuietXMLTest, endsATextAtAProcessingInstruction)
{
    EXPECT_EQ(outlineOf("<a>1<?p i?>2</a>"), "<a>[1][2]</>");
}

TEST(QuietXMLTest, leavesAttributesOut)
{
    wxXmlDocument document;
    ASSERT_TRUE(load(document, "<a b='1'/>"));
    EXPECT_EQ(document.GetRoot()->GetAttributes(), nullptr);
}

TEST(QuietXMLTest, readsAsWxWidgetsDoes)
{
    for (const std::string text :
        {"<a/>", "<?xml version=\"1.0\"?><!-- c --><a b=\"1\"><![CDATA[x]]>y<c/></a><!-- d -->",
            "<a>x<b>&amp;</b>y\n\nz<!-- c --> <?p i?>&quot;<![CDATA[]]><![CDATA[1]]>2<b>\xF0\x9F\x98\x80</b></a>",
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><\xe4>\xe4</\xe4>", "\xEF\xBB\xBF<a>\xC3\xA4</a>"}) {
        wxXmlDocument ofWx;
        wxMemoryInputStream bytes(text.data(), text.size());
        ASSERT_TRUE(ofWx.Load(bytes, wxS("UTF-8"), wxXMLDOC_KEEP_WHITESPACE_NODES)) << text;
        EXPECT_EQ(outlineOf(text), outlineOf(ofWx));
    }
}

TEST(QuietXMLTest, refusesWhatIsCutOrBroken)
{
    for (const std::string text : {"", " ", "<a", "<a>", "<a></b>", "<a/><b/>", "&amp;", "<a>&unknown;</a>",
             "<a>\x01</a>", "<a>\xff</a>", "<a/>x"})
        EXPECT_FALSE(isTaken(text)) << text;
}

TEST(QuietXMLTest, keepsWhatItHasWhenItRefuses)
{
    wxXmlDocument document;
    ASSERT_TRUE(load(document, "<a/>"));
    EXPECT_FALSE(load(document, "<b><c></b>"));
    EXPECT_EQ(outlineOf(document), "<a></>");
    EXPECT_TRUE(load(document, "<b/>"));
    EXPECT_EQ(outlineOf(document), "<b></>");
}

TEST(QuietXMLTest, knowsUTF16)
{
    EXPECT_EQ(outlineOf(std::string("\xFF\xFE<\0a\0>\0\xE4\0<\0/\0a\0>\0", 18)), "<a>[\xC3\xA4]</>");
}

TEST(QuietXMLTest, refusesEncodingsThatItDoesNotKnow)
{
    EXPECT_FALSE(isTaken("<?xml version=\"1.0\" encoding=\"x-unknown\"?><a>\xe4</a>"));
}

TEST(QuietXMLTest, refusesADocumentType)
{
    EXPECT_FALSE(isTaken("<!DOCTYPE a><a/>"));
    EXPECT_FALSE(isTaken("<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>"));
}

TEST(QuietXMLTest, refusesABombOfEntities)
{
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
    for (int i = 1; i < 60; ++i)
        bomb += "<!ENTITY e" + std::to_string(i) + " \"&e" + std::to_string(i - 1) + ";&e" + std::to_string(i - 1)
            + ";\">";
    EXPECT_FALSE(isTaken(bomb + "]><a>&e59;</a>"));
}

TEST(QuietXMLTest, takesAHundredElementsInOneAnotherAndNoMore)
{
    EXPECT_TRUE(isTaken(nestedXML(100)));
    EXPECT_FALSE(isTaken(nestedXML(101)));
    EXPECT_FALSE(isTaken(nestedXML(1'000'000)));
    EXPECT_FALSE(isTaken(repeated("<a>", 100) + "<b/>" + repeated("</a>", 100)));
}

TEST(QuietXMLTest, countsDepthAndNotElements)
{
    EXPECT_TRUE(isTaken("<a>" + repeated("<b/>", 1000) + "</a>"));
}

// These take minutes where every piece is added to a copy of what came before.
TEST(QuietXMLTest, takesATextOfAnyNumberOfPieces)
{
    EXPECT_EQ(outlineOf("<a>" + repeated("&#38;", 500'000) + "</a>"), "<a>[" + std::string(500'000, '&') + "]</>");
}

TEST(QuietXMLTest, takesAnyNumberOfAttributes)
{
    std::string element = "<a";
    for (int i = 0; i < 50'000; ++i)
        element += " b" + std::to_string(i) + "=''";
    EXPECT_TRUE(isTaken(element + "/>"));
}

TEST(QuietXMLTest, takesDocumentsLongerThanTheBlocksInWhichItReads)
{
    const std::string text = std::string(1'000'000, 'x');
    EXPECT_EQ(outlineOf("<a>" + repeated("<b>" + text + "</b>", 3) + "</a>"),
        "<a>" + repeated("<b>[" + text + "]</>", 3) + "</>");
}

// So that the end is found in a block of its own.
TEST(QuietXMLTest, takesADocumentThatFillsItsBlocksExactly)
{
    constexpr size_t blockSize = 1 << 20;
    EXPECT_TRUE(isTaken("<a>" + std::string(blockSize - 7, 'x') + "</a>"));
}

/// A stream that does not know its length and gives a few bytes at a time.
class CTricklingStream : public wxInputStream {
public:
    explicit CTricklingStream(std::string text)
        : m_text(std::move(text))
    {
    }

protected:
    size_t OnSysRead(void* buffer, size_t size) override
    {
        const size_t count = m_text.copy(static_cast<char*>(buffer), std::min<size_t>(size, 3));
        m_text.erase(0, count);
        m_lasterror = count == 0 ? wxSTREAM_EOF : wxSTREAM_NO_ERROR;
        return count;
    }

private:
    std::string m_text;
};

TEST(QuietXMLTest, readsAStreamToItsEnd)
{
    CTricklingStream stream("<a>any <b/>text</a>");
    wxXmlDocument document;
    ASSERT_TRUE(norla::loadQuietly(document, stream));
    EXPECT_EQ(outlineOf(document), "<a>[any ]<b></>[text]</>");
}

/// A document with something long in its middle, which is made as it is read. Knows its length or not.
class CLongStream : public wxInputStream {
public:
    CLongStream(std::string before, size_t length, std::string after, bool knowsLength)
        : m_before(std::move(before))
        , m_end(m_before.size() + length)
        , m_after(std::move(after))
        , m_knowsLength(knowsLength)
    {
    }

    wxFileOffset GetLength() const override
    {
        return m_knowsLength ? static_cast<wxFileOffset>(size()) : wxInvalidOffset;
    }
    size_t size() const { return m_end + m_after.size(); }
    size_t blockCount() const { return m_blockCount; }
    size_t largestBlock() const { return m_largestBlock; }

protected:
    size_t OnSysRead(void* buffer, size_t count) override
    {
        ++m_blockCount;
        m_largestBlock = std::max(m_largestBlock, count);
        const size_t given = std::min(count, size() - m_position);
        for (size_t i = 0; i < given; ++i, ++m_position)
            static_cast<char*>(buffer)[i] = next();
        m_lasterror = given < count ? wxSTREAM_EOF : wxSTREAM_NO_ERROR;
        return given;
    }

private:
    char next() const
    {
        if (m_position < m_before.size())
            return m_before[m_position];
        return m_position < m_end ? 'x' : m_after[m_position - m_end];
    }

    const std::string m_before;
    const size_t m_end;
    const std::string m_after;
    const bool m_knowsLength;
    size_t m_position = 0;
    size_t m_blockCount = 0;
    size_t m_largestBlock = 0;
};

struct CLongToken {
    const char* name;
    const char* before;
    const char* after;
    bool isTaken;
};

class QuietXMLLongTokenTest : public testing::TestWithParam<std::tuple<CLongToken, bool>> {};

// expat scans a token that has not ended anew with each block: as many blocks as there are mebibytes would take time
// that grows with the square of the length.
TEST_P(QuietXMLLongTokenTest, isReadInFewBlocksThatTogetherHoldTheDocument)
{
    const auto& [token, knowsLength] = GetParam();
    constexpr size_t length = 16 << 20;
    CLongStream stream(token.before, length, token.after, knowsLength);
    wxXmlDocument document;
    EXPECT_EQ(norla::loadQuietly(document, stream), token.isTaken);
    EXPECT_LE(stream.blockCount(), 7u);
    EXPECT_LE(stream.largestBlock(), length);
}

INSTANTIATE_TEST_SUITE_P(Tokens, QuietXMLLongTokenTest,
    testing::Combine(
        testing::Values(CLongToken{"comment", "<a><!--", "--></a>", true},
            CLongToken{"commentBeforeTheRoot", "<!--", "--><a/>", true},
            CLongToken{"commentWithoutEnd", "<a><!--", "", false}, CLongToken{"name", "<", "/>", true},
            CLongToken{"attribute", "<a b='", "'/>", true}, CLongToken{"attributeName", "<a ", "=''/>", true},
            CLongToken{"instruction", "<a><?p ", "?></a>", true}, CLongToken{"entity", "<a>&", ";</a>", false},
            CLongToken{"garbage", "", "", false}),
        testing::Bool()),
    [](const auto& tested) {
        return std::get<0>(tested.param).name + std::string(std::get<1>(tested.param) ? "OfKnownLength" : "");
    });

TEST(QuietXMLTest, goesBackToUsualBlocksBehindALongToken)
{
    CLongStream stream("<a><!--", 4 << 20, "-->" + std::string(20 << 20, 'x') + "</a>", true);
    wxXmlDocument document;
    EXPECT_TRUE(norla::loadQuietly(document, stream));
    EXPECT_GE(stream.blockCount(), 16u);
}

// A long text is no such token: expat gives what it has of it.
TEST(QuietXMLTest, readsALongTextInUsualBlocks)
{
    CLongStream stream("<a>", 8 << 20, "</a>", true);
    wxXmlDocument document;
    EXPECT_TRUE(norla::loadQuietly(document, stream));
    EXPECT_EQ(stream.largestBlock(), size_t{1} << 20);
}

} // namespace
