// The loading of documents, with wxWidgets in view: a program of its own, because it replaces wxWidgets' log.
#include "norla/s3/CS3Document.h"

#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "norla/s3/CS3ListObjectsResult.h"
#include "norla/s3/harmlessXML.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>
#include <wx/log.h>
#include <wx/xml/xml.h>

#include <string>
#include <thread>
#include <vector>

namespace {

std::string repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

std::string nested(int depth)
{
    return repeated("<a>", depth) + repeated("</a>", depth);
}

std::string withAttributes(int count)
{
    std::string element = "<a";
    for (int i = 0; i < count; ++i)
        element += " b" + std::to_string(i) + "=''";
    return element + "/>";
}

bool isHarmless(const std::string& document)
{
    return norla::isHarmlessXML(document.data(), document.size());
}

TEST(HarmlessXMLTest, isAnyWellFormedDocument)
{
    EXPECT_TRUE(isHarmless("<?xml version=\"1.0\"?><!-- c --><a b=\"1\"><![CDATA[x]]>y<c/></a>"));
}

TEST(HarmlessXMLTest, isNothingCutOrBroken)
{
    for (const std::string document :
        {"", " ", "<a", "<a>", "<a></b>", "<a/><b/>", "&amp;", "<a>&unknown;</a>", "<a>\x01</a>"})
        EXPECT_FALSE(isHarmless(document)) << document;
}

TEST(HarmlessXMLTest, mayUseEncodingsThatAreNotUTF8)
{
    EXPECT_TRUE(isHarmless("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xe4</a>"));
    EXPECT_FALSE(isHarmless("<?xml version=\"1.0\" encoding=\"x-unknown\"?><a>\xe4</a>"));
}

TEST(HarmlessXMLTest, hasNoDocumentType)
{
    EXPECT_FALSE(isHarmless("<!DOCTYPE a><a/>"));
    EXPECT_FALSE(isHarmless("<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>"));
}

TEST(HarmlessXMLTest, isNoBombOfEntities)
{
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
    for (int i = 1; i < 60; ++i)
        bomb += "<!ENTITY e" + std::to_string(i) + " \"&e" + std::to_string(i - 1) + ";&e" + std::to_string(i - 1)
            + ";\">";
    EXPECT_FALSE(isHarmless(bomb + "]><a>&e59;</a>"));
}

TEST(HarmlessXMLTest, isNotDeeperThan100Elements)
{
    EXPECT_TRUE(isHarmless(nested(100)));
    EXPECT_FALSE(isHarmless(nested(101)));
    EXPECT_FALSE(isHarmless(nested(1'000'000)));
}

TEST(HarmlessXMLTest, countsDepthAndNotElements)
{
    EXPECT_TRUE(isHarmless("<a>" + repeated("<b/>", 1000) + "</a>"));
}

TEST(HarmlessXMLTest, hasNoMoreThan64AttributesAnElement)
{
    EXPECT_TRUE(isHarmless(withAttributes(64)));
    EXPECT_FALSE(isHarmless(withAttributes(65)));
}

TEST(HarmlessXMLTest, hasNoTextLongerThan64KiB)
{
    EXPECT_TRUE(isHarmless("<a>" + std::string(64 << 10, 'x') + "</a>"));
    EXPECT_FALSE(isHarmless("<a>" + std::string((64 << 10) + 1, 'x') + "</a>"));
}

TEST(HarmlessXMLTest, hasNoTextInMoreThan2048Parts)
{
    EXPECT_TRUE(isHarmless("<a>" + repeated("&#38;", 2048) + "</a>"));
    EXPECT_FALSE(isHarmless("<a>" + repeated("&#38;", 2049) + "</a>"));
}

TEST(HarmlessXMLTest, measuresEachPieceOfTextByItself)
{
    EXPECT_TRUE(isHarmless("<a>" + repeated("<b>" + std::string(60 << 10, 'x') + "</b>", 4) + "</a>"));
    EXPECT_TRUE(isHarmless("<a>" + repeated("<b>" + repeated("&#38;", 1500) + "</b>", 4) + "</a>"));
}

TEST(HarmlessXMLTest, mayBeLongerThanTheBlocksInWhichItIsRead)
{
    const std::string document = "<a>" + repeated("<b>" + std::string(60 << 10, 'x') + "</b>", 40) + "</a>";
    EXPECT_TRUE(isHarmless(document));
    EXPECT_FALSE(isHarmless(document + "</a>"));
}

TEST(CS3DocumentTest, namesTheDocumentThatHasNoRoot)
{
    EXPECT_EQ(support::messageOf([] { norla::CS3Document::requireRoot(wxXmlDocument(), "error response"); }),
        "Error parsing Amazon S3 error response: no root element.");
    EXPECT_EQ(support::messageOf([] { norla::CS3Document::requireRoot(wxXmlDocument(), "'list objects' result"); }),
        "Error parsing Amazon S3 'list objects' result: no root element.");
}

/// Counts what wxWidgets logs, on any thread that has no log of its own.
class CCountingLog : public wxLog {
public:
    std::vector<std::string> m_texts;

protected:
    void DoLogRecord(wxLogLevel, const wxString& text, const wxLogRecordInfo&) override
    {
        m_texts.push_back(text.ToStdString());
    }
};

/// Documents that wxWidgets could complain about.
std::vector<std::string> hostileDocuments()
{
    return {"", "no XML", "<Error>", "<Error></error>",
        "<?xml version=\"1.0\" encoding=\"x-unknown\"?><Error>\xe4</Error>", "<Error>\xff</Error>",
        "<!DOCTYPE Error [<!ENTITY e \"x\">]><Error>&e;</Error>", "<Error>&unknown;</Error>", nested(1'000'000),
        std::string("<Error>\0</Error>", 16)};
}

void parseEverything()
{
    for (const std::string& document : hostileDocuments()) {
        const int size = static_cast<int>(document.size());
        EXPECT_TRUE(support::errorOf([&] { norla::CS3ErrorResponse(document.data(), size); }));
        EXPECT_TRUE(support::errorOf([&] { norla::CS3ListObjectsResult(document.data(), size); }));
        EXPECT_TRUE(support::errorOf([&] { norla::CS3CopyObjectResult(document.data(), size); }));
    }
}

TEST(CS3DocumentTest, givesWxWidgetsNothingToComplainAbout)
{
    CCountingLog log;
    wxLog* const before = wxLog::SetActiveTarget(&log);
    parseEverything();
    wxLog::SetActiveTarget(before);
    EXPECT_EQ(log.m_texts, std::vector<std::string>());
}

TEST(CS3DocumentTest, isSilentOnAWorkerThreadWithoutWxWidgetsEverInitialised)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    std::thread(parseEverything).join();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
