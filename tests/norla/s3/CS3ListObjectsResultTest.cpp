#include "norla/s3/CS3ListObjectsResult.h"

#include "kx/containers/TArray.h"
#include "tests/norla/s3/parseDocument.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using norla::CS3ListObjectsResult;

/// A listing with these children.
kx::P<CS3ListObjectsResult> listing(const std::string& children)
{
    return parseDocument<CS3ListObjectsResult>(
        "<ListBucketResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">" + children + "</ListBucketResult>");
}

TEST(CS3ListObjectsResultTest, readsAPage)
{
    const auto page = parseDocument<CS3ListObjectsResult>(R"(<?xml version="1.0" encoding="UTF-8"?>
<ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Name>bucket</Name>
  <Prefix>p</Prefix>
  <MaxKeys>2</MaxKeys>
  <IsTruncated>true</IsTruncated>
  <NextMarker>pz</NextMarker>
  <Contents><Key>pa</Key><LastModified>2026-11-21T08:49:37.000Z</LastModified><ETag>&quot;e1&quot;</ETag><Size>5</Size>
    <Owner><ID>o</ID></Owner></Contents>
  <Contents><Key>pb</Key><Size>0</Size></Contents>
  <CommonPrefixes><Prefix>pc/</Prefix></CommonPrefixes>
  <CommonPrefixes><Prefix>pd/</Prefix></CommonPrefixes>
</ListBucketResult>)");
    EXPECT_TRUE(page->isTruncated());
    EXPECT_EQ(page->getNextMarker(), "pz");
    ASSERT_EQ(page->getContents().size(), 2u);
    EXPECT_EQ(page->getContents()[0]->getKey(), "pa");
    EXPECT_EQ(page->getContents()[1]->getKey(), "pb");
    EXPECT_EQ(page->getCommonPrefixes(), (kx::TArray<kx::String>{"pc/", "pd/"}));
}

TEST(CS3ListObjectsResultTest, readsAnEmptyBucket)
{
    const auto page = listing("<IsTruncated>false</IsTruncated>");
    EXPECT_TRUE(page->getContents().empty());
    EXPECT_TRUE(page->getCommonPrefixes().empty());
    EXPECT_EQ(page->getNextMarker(), "");
}

TEST(CS3ListObjectsResultTest, isNotTruncatedWhenTheDocumentDoesNotSay)
{
    EXPECT_FALSE(listing("")->isTruncated());
}

TEST(CS3ListObjectsResultTest, readsTruncationInAnyCase)
{
    EXPECT_TRUE(listing("<IsTruncated>True</IsTruncated>")->isTruncated());
    EXPECT_FALSE(listing("<IsTruncated>true</IsTruncated><IsTruncated>FALSE</IsTruncated>")->isTruncated());
}

TEST(CS3ListObjectsResultTest, refusesAnotherTruncation)
{
    EXPECT_EQ(
        parseMessage<CS3ListObjectsResult>("<ListBucketResult><IsTruncated>Maybe</IsTruncated></ListBucketResult>"),
        "Bad value for 'IsTruncated' S3 list objects result element: 'Maybe'");
    EXPECT_EQ(parseMessage<CS3ListObjectsResult>("<ListBucketResult><IsTruncated/></ListBucketResult>"),
        "Bad value for 'IsTruncated' S3 list objects result element: ''");
    EXPECT_EQ(
        parseMessage<CS3ListObjectsResult>("<ListBucketResult><IsTruncated> true</IsTruncated></ListBucketResult>"),
        "Bad value for 'IsTruncated' S3 list objects result element: ' true'");
}

TEST(CS3ListObjectsResultTest, ignoresTheBucketsOwnPrefix)
{
    EXPECT_TRUE(listing("<Prefix>p</Prefix>")->getCommonPrefixes().empty());
}

TEST(CS3ListObjectsResultTest, readsEveryPrefixOfAGroup)
{
    EXPECT_EQ(
        listing("<CommonPrefixes><Prefix>a/</Prefix><Other/><Prefix>b/</Prefix></CommonPrefixes>")->getCommonPrefixes(),
        (kx::TArray<kx::String>{"a/", "b/"}));
}

TEST(CS3ListObjectsResultTest, readsABuffer)
{
    kx::TBuffer<unsigned char> buffer;
    const std::string document = "<ListBucketResult><NextMarker>m</NextMarker></ListBucketResult>";
    buffer.append(reinterpret_cast<const unsigned char*>(document.data()), document.size());
    EXPECT_EQ(CS3ListObjectsResult(&buffer).getNextMarker(), "m");
}

TEST(CS3ListObjectsResultTest, refusesAnEmptyBuffer)
{
    const kx::TBuffer<unsigned char> buffer;
    EXPECT_EQ(support::messageOf([&buffer] { CS3ListObjectsResult{&buffer}; }),
        "Error parsing Amazon S3 'list objects' result: invalid XML.");
}

TEST(CS3ListObjectsResultTest, refusesBytesThatAreNoXML)
{
    for (const auto document : {"", "{}", "<ListBucketResult>", "<ListBucketResult>\xff</ListBucketResult>"})
        EXPECT_EQ(
            parseMessage<CS3ListObjectsResult>(document), "Error parsing Amazon S3 'list objects' result: invalid XML.")
            << document;
}

TEST(CS3ListObjectsResultTest, refusesANegativeSize)
{
    EXPECT_EQ(support::messageOf([] { CS3ListObjectsResult("<ListBucketResult/>", -1); }),
        "Error parsing Amazon S3 'list objects' result: invalid XML.");
}

TEST(CS3ListObjectsResultTest, refusesAnotherRoot)
{
    for (const auto document : {"<Error/>", "<listbucketresult/>", "<ListBucketResults/>"})
        EXPECT_EQ(parseMessage<CS3ListObjectsResult>(document),
            "Error parsing Amazon S3 'list objects' result: root element is not ListBucketResult.");
}

TEST(CS3ListObjectsResultTest, isAPlainErrorWhenItCannotBeParsed)
{
    for (const auto document : {"", "<Error/>", "<ListBucketResult><IsTruncated/></ListBucketResult>",
             "<ListBucketResult><Contents/></ListBucketResult>"}) {
        const auto error = support::errorOf([document] { parseDocument<CS3ListObjectsResult>(document); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getDomain(), "");
        EXPECT_EQ(error->getCode(), -1);
    }
}

class CS3ListObjectsElementTest : public testing::Test {
protected:
    static kx::P<norla::CS3ListObjectsElement> element(const std::string& children)
    {
        return listing("<Contents>" + children + "</Contents>")->getContents().at(0);
    }
};

TEST_F(CS3ListObjectsElementTest, keepsTheServicesTexts)
{
    const auto object
        = element("<Key>photos/\xc3\xa4 b+c.jpg</Key><LastModified>2026-11-21T08:49:37.000Z</LastModified>"
                  "<ETag>&quot;abc&quot;</ETag><Size>12</Size><StorageClass>STANDARD</StorageClass>");
    EXPECT_EQ(object->getKey(), "photos/\xe4 b+c.jpg");
    EXPECT_EQ(object->getLastModified(), "2026-11-21T08:49:37.000Z");
    EXPECT_EQ(object->getETag(), "\"abc\"");
    EXPECT_EQ(object->getSize(), 12);
}

TEST_F(CS3ListObjectsElementTest, readsSizesBeyond32Bits)
{
    EXPECT_EQ(element("<Key>k</Key><Size>5497558138880</Size>")->getSize(), 5497558138880);
}

TEST_F(CS3ListObjectsElementTest, needsTheKeyAlone)
{
    const auto object = element("<Key>k</Key>");
    EXPECT_EQ(object->getSize(), -1);
    EXPECT_EQ(object->getETag(), "");
    EXPECT_EQ(object->getLastModified(), "");
}

TEST_F(CS3ListObjectsElementTest, canBeNamedByABlank)
{
    EXPECT_EQ(element("<Key> </Key>")->getKey(), " ");
    EXPECT_EQ(element("<Key> k\n</Key>")->getKey(), " k\n");
}

TEST_F(CS3ListObjectsElementTest, canHaveAKeyWhoseEveryByteIsEscaped)
{
    std::string escaped;
    for (int i = 0; i < 1024; ++i)
        escaped += "&#38;";
    EXPECT_EQ(element("<Key>" + escaped + "</Key>")->getKey().size(), 1024u);
}

TEST_F(CS3ListObjectsElementTest, isRefusedWithoutAKey)
{
    for (const auto children : {"", "<Key/>", "<Key></Key>", "<key>k</key>", "<Size>1</Size>"})
        EXPECT_EQ(support::messageOf([children] { element(children); }),
            "Invalid Amazon S3 list objects element: 'Key' field not defined.");
}

TEST_F(CS3ListObjectsElementTest, isRefusedWithASizeThatIsNoNumber)
{
    for (const kx::String& size : kx::TArray<kx::String>{"", " 1", "1.5", "9223372036854775808"})
        EXPECT_NE(support::messageOf([size] {
            element("<Key>k</Key><Size>" + size.toUTF8() + "</Size>");
        }).find("'" + size + "'"),
            kx::String::npos);
}

/// The same, whose names are decoded where it says that they are encoded.
kx::P<CS3ListObjectsResult> decodedListing(const std::string& children)
{
    const std::string document = "<ListBucketResult>" + children + "</ListBucketResult>";
    const auto bytes = kx::newObj<kx::TBuffer<unsigned char>>();
    bytes->append(reinterpret_cast<const unsigned char*>(document.data()), document.size());
    return kx::newObj<CS3ListObjectsResult>(bytes.get(), CS3ListObjectsResult::Names::AsTheDocumentSays);
}

const std::string encoded = "<EncodingType>url</EncodingType>";

TEST(CS3ListObjectsResultNamesTest, areDecodedWhereTheDocumentSaysSo)
{
    const std::string names = "<Contents><Key>a%20b+c%2B%C3%A4%01</Key><ETag>%41</ETag></Contents>"
                              "<CommonPrefixes><Prefix>d%2F/</Prefix></CommonPrefixes><NextMarker>x%41+</NextMarker>";
    for (const std::string& document : {encoded + names, names + encoded}) {
        const auto page = decodedListing(document);
        EXPECT_EQ(page->getContents().at(0)->getKey(), L"a b c+\u00e4\u0001");
        EXPECT_EQ(page->getContents().at(0)->getETag(), "%41");
        EXPECT_EQ(page->getCommonPrefixes().at(0), "d//");
        EXPECT_EQ(page->getNextMarker(), "xA ");
    }
}

TEST(CS3ListObjectsResultNamesTest, stayAsTheyAreWhereTheDocumentDoesNotSaySo)
{
    for (const std::string type : {"", "<EncodingType/>", "<EncodingType>none</EncodingType>"}) {
        const auto page = decodedListing(type + "<Contents><Key>%41+</Key></Contents><NextMarker>%42</NextMarker>");
        EXPECT_EQ(page->getContents().at(0)->getKey(), "%41+");
        EXPECT_EQ(page->getNextMarker(), "%42");
    }
}

TEST(CS3ListObjectsResultNamesTest, stayAsTheyAreUnlessTheCallerSaysSo)
{
    EXPECT_EQ(listing(encoded + "<Contents><Key>%41+</Key></Contents>")->getContents().at(0)->getKey(), "%41+");
}

TEST(CS3ListObjectsResultNamesTest, leaveTheMarkerOfAStoreThatDoesNotEncodeItAsItIs)
{
    const std::string keys = "<Contents><Key>a</Key></Contents><Contents><Key>100%2541%2B</Key></Contents>";
    const std::string prefix = "<CommonPrefixes><Prefix>c%2541/</Prefix></CommonPrefixes>";
    EXPECT_EQ(decodedListing(encoded + keys + "<NextMarker>100%41+</NextMarker>")->getNextMarker(), "100%41+");
    EXPECT_EQ(decodedListing(encoded + keys + "<NextMarker>100%2541%2B</NextMarker>")->getNextMarker(), "100%41+");
    EXPECT_EQ(decodedListing(encoded + prefix + "<NextMarker>c%41/</NextMarker>")->getNextMarker(), "c%41/");
    EXPECT_EQ(decodedListing(encoded + keys + prefix + "<NextMarker>c%41/</NextMarker>")->getNextMarker(), "c%41/");
    EXPECT_EQ(decodedListing(encoded + keys)->getNextMarker(), "");
}

TEST(CS3ListObjectsResultNamesTest, areReadBesideAMarkerThatXMLForbids)
{
    const std::string page
        = "<Contents><Key>a%2541%01</Key></Contents><NextMarker>a%41&#x01;</NextMarker><Prefix>\x02</Prefix>";
    EXPECT_EQ(decodedListing(encoded + page)->getNextMarker(), "a%41\x01");
    EXPECT_EQ(support::messageOf([&] { decodedListing(page); }),
        "Error parsing Amazon S3 'list objects' result: invalid XML.");
    EXPECT_EQ(support::messageOf([&] { listing(encoded + page); }),
        "Error parsing Amazon S3 'list objects' result: invalid XML.");
}

TEST(CS3ListObjectsResultNamesTest, areRefusedWhenTheyAreNoText)
{
    for (const std::string name : {"<Contents><Key>a%FF</Key></Contents>",
             "<CommonPrefixes><Prefix>a%FF</Prefix></CommonPrefixes>", "<NextMarker>a%FF</NextMarker>"})
        EXPECT_EQ(support::messageOf([&] { decodedListing(encoded + name); }),
            "The name 'a%FF' in an Amazon S3 listing is not UTF-8.");
}

TEST(CS3ListObjectsResultNamesTest, areMissingWhenTheyAreEmpty)
{
    EXPECT_EQ(support::messageOf([] { decodedListing(encoded + "<Contents><Key/></Contents>"); }),
        "Invalid Amazon S3 list objects element: 'Key' field not defined.");
}

} // namespace
