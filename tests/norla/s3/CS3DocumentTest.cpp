// The loading of documents, with wxWidgets in view: a program of its own, because it replaces wxWidgets' log.
#include "norla/s3/CS3Document.h"

#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "norla/s3/CS3ListObjectsResult.h"
#include "tests/norla/s3/nestedXML.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>
#include <wx/log.h>
#include <wx/mstream.h>
#include <wx/xml/xml.h>

#include <string>
#include <thread>
#include <vector>

namespace {

TEST(CS3DocumentTest, namesTheDocumentThatHasNoRoot)
{
    EXPECT_EQ(support::messageOf([] { norla::CS3Document::requireRoot(norla::CXMLTree(), "error response"); }),
        "Error parsing Amazon S3 error response: no root element.");
    EXPECT_EQ(support::messageOf([] { norla::CS3Document::requireRoot(norla::CXMLTree(), "'list objects' result"); }),
        "Error parsing Amazon S3 'list objects' result: no root element.");
}

TEST(CS3DocumentTest, namesTheDocumentThatHasTooManyElements)
{
    EXPECT_EQ(support::messageOf([] { norla::CS3Document("<a><b/><c/></a>", "error response", 2); }),
        "Error parsing Amazon S3 error response: more than 2 elements.");
}

/// A node of a document that somebody else has loaded.
class CS3NodeTest : public testing::Test {
protected:
    wxXmlNode* rootOf(const std::string& text)
    {
        wxMemoryInputStream bytes(text.data(), text.size());
        EXPECT_TRUE(m_document.Load(bytes));
        return m_document.GetRoot();
    }

private:
    wxXmlDocument m_document;
};

TEST_F(CS3NodeTest, isReadAsAnErrorResponse)
{
    EXPECT_EQ(norla::CS3ErrorResponse(rootOf("<Error><Code>SlowDown</Code></Error>")).getCode(), "SlowDown");
}

TEST_F(CS3NodeTest, isReadAsAListing)
{
    const norla::CS3ListObjectsResult listing(
        rootOf("<ListBucketResult><Contents><Key>k</Key></Contents></ListBucketResult>"));
    ASSERT_EQ(listing.getContents().size(), 1U);
    EXPECT_EQ(listing.getContents()[0]->getKey(), "k");
}

TEST_F(CS3NodeTest, isReadAsAnObjectOfAListing)
{
    const norla::CS3ListObjectsElement object(rootOf("<Contents><Key>k</Key><Size>5</Size></Contents>"));
    EXPECT_EQ(object.getKey(), "k");
    EXPECT_EQ(object.getSize(), 5);
}

TEST_F(CS3NodeTest, isReadAsTheResultOfACopy)
{
    const norla::CS3CopyObjectResult copy(rootOf("<CopyObjectResult><ETag>e</ETag></CopyObjectResult>"));
    EXPECT_EQ(copy.getETag(), "e");
}

TEST_F(CS3NodeTest, givesTheSameListingAsItsBytes)
{
    const std::string text
        = "<ListBucketResult>x<IsTruncated>TRUE</IsTruncated><!-- c --><NextMarker>m<!-- c -->n</NextMarker>"
          "<Contents><Key><![CDATA[]]>y</Key><Key> \xC3\xA4&amp;\n</Key><Size>7</Size><ETag>\"e\"</ETag>"
          "<LastModified>2026-11-21T08:49:37.000Z</LastModified></Contents>"
          "<CommonPrefixes><Prefix>p/</Prefix><Other/><Prefix>q/</Prefix></CommonPrefixes></ListBucketResult>";
    const norla::CS3ListObjectsResult ofNode(rootOf(text));
    const norla::CS3ListObjectsResult ofBytes(text.data(), static_cast<int>(text.size()));
    for (const auto* const listing : {&ofNode, &ofBytes}) {
        EXPECT_TRUE(listing->isTruncated());
        EXPECT_EQ(listing->getNextMarker(), "m");
        EXPECT_EQ(listing->getCommonPrefixes(), (kx::TArray<kx::String>{"p/", "q/"}));
        ASSERT_EQ(listing->getContents().size(), 1U);
        EXPECT_EQ(listing->getContents()[0]->getKey(), kx::String::fromUTF8(" \xC3\xA4&\n"));
        EXPECT_EQ(listing->getContents()[0]->getSize(), 7);
        EXPECT_EQ(listing->getContents()[0]->getETag(), "\"e\"");
        EXPECT_EQ(listing->getContents()[0]->getLastModified(), "2026-11-21T08:49:37.000Z");
    }
}

TEST_F(CS3NodeTest, givesTheSameErrorResponseAsItsBytes)
{
    const std::string text
        = "<Error>x<Code>Slow<!-- c -->Down</Code><Code>First</Code><!-- c --><Message> \xC3\xA4&amp;\n</Message>"
          "<Resource>/b/<![CDATA[<k>]]></Resource><RequestId>tx</RequestId><HostId>h</HostId><Region>r</Region>"
          "<Details><Code>inner</Code></Details><code>y</code></Error>";
    const norla::CS3ErrorResponse ofNode(rootOf(text));
    const norla::CS3ErrorResponse ofBytes(text.data(), static_cast<int>(text.size()));
    for (const auto* const response : {&ofNode, &ofBytes}) {
        EXPECT_EQ(response->getCode(), "First");
        EXPECT_EQ(response->getMessage(), kx::String::fromUTF8(" \xC3\xA4&\n"));
        EXPECT_EQ(response->getResource(), "/b/");
        EXPECT_EQ(response->getRequestId(), "tx");
        EXPECT_EQ(response->getHostId(), "h");
        EXPECT_EQ(response->getRegion(), "r");
    }
}

TEST_F(CS3NodeTest, givesTheSameResultOfACopyAsItsBytes)
{
    const std::string text
        = "<CopyObjectResult>x<ETag>old</ETag><LastModified>2026-11-21T08:49:37.000Z</LastModified><!-- c -->"
          "<ETag>&quot;\xC3\xA4<!-- c -->n&quot;</ETag><Other><ETag>inner</ETag></Other></CopyObjectResult>";
    const norla::CS3CopyObjectResult ofNode(rootOf(text));
    const norla::CS3CopyObjectResult ofBytes(text.data(), static_cast<int>(text.size()));
    for (const auto* const copy : {&ofNode, &ofBytes}) {
        EXPECT_FALSE(copy->getErrorResponse());
        EXPECT_EQ(copy->getLastModified(), "2026-11-21T08:49:37.000Z");
        EXPECT_EQ(copy->getETag(), kx::String::fromUTF8("\"\xC3\xA4"));
    }
}

TEST_F(CS3NodeTest, givesTheSameFailureOfACopyAsItsBytes)
{
    const std::string text = "<Error><Code>InternalError</Code><Message>m</Message><Resource>/b/k</Resource>"
                             "<RequestId>tx</RequestId><HostId>h</HostId><Region>r</Region></Error>";
    const norla::CS3CopyObjectResult ofNode(rootOf(text));
    const norla::CS3CopyObjectResult ofBytes(text.data(), static_cast<int>(text.size()));
    for (const auto* const copy : {&ofNode, &ofBytes}) {
        const auto response = copy->getErrorResponse();
        ASSERT_TRUE(response);
        EXPECT_EQ(response->getCode(), "InternalError");
        EXPECT_EQ(response->getMessage(), "m");
        EXPECT_EQ(response->getResource(), "/b/k");
        EXPECT_EQ(response->getRequestId(), "tx");
        EXPECT_EQ(response->getHostId(), "h");
        EXPECT_EQ(response->getRegion(), "r");
        EXPECT_EQ(copy->getLastModified(), "");
        EXPECT_EQ(copy->getETag(), "");
    }
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
        "<!DOCTYPE Error [<!ENTITY e \"x\">]><Error>&e;</Error>", "<Error>&unknown;</Error>", nestedXML(1'000'000),
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
