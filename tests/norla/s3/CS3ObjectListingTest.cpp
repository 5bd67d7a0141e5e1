#include "norla/s3/CS3ObjectListing.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CS3ListFixture.h"

#include <vector>

namespace {

using norla::CS3ListOptions;
using norla::CS3ObjectListing;
using Keys = std::vector<kx::String>;

class CS3ObjectListingTest : public CS3ListFixture {
protected:
    static std::string keys(std::initializer_list<const char*> keys)
    {
        std::string elements;
        for (const char* const key : keys)
            elements += "<Contents><Key>" + std::string(key) + "</Key></Contents>";
        return elements;
    }

    static std::string page(const std::string& content)
    {
        return "<ListBucketResult>" + content + "</ListBucketResult>";
    }

    void answerLast(const std::string& content) { answerDocument(page(content + "<IsTruncated>false</IsTruncated>")); }

    void answerMore(const std::string& content, const std::string& token)
    {
        answerDocument(page(
            "<IsTruncated>true</IsTruncated><NextContinuationToken>" + token + "</NextContinuationToken>" + content));
    }

    kx::P<CS3ObjectListing> list(const CS3ListOptions& options = {})
    {
        return kx::newObj<CS3ObjectListing>(&store(), &request(), "b", options);
    }

    static Keys rest(CS3ObjectListing& objects)
    {
        Keys keys;
        while (objects.next())
            keys.push_back(objects.getCurrent()->key);
        return keys;
    }

    kx::String messageOf(const CS3ListOptions& options = {})
    {
        return support::messageOf([&] { rest(*list(options)); });
    }
};

TEST_F(CS3ObjectListingTest, fetchesNothingBeforeItIsAsked)
{
    EXPECT_FALSE(list()->getCurrent());
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CS3ObjectListingTest, tellsWhatTheStoreTellsOfAnObject)
{
    answerLast("<Contents><Key>k</Key><LastModified>2026-11-21T08:49:37.000Z</LastModified><ETag>&quot;1&quot;</ETag>"
               "<Size>5497558138880</Size><StorageClass>STANDARD</StorageClass><Owner><ID>i</ID>"
               "<DisplayName>n</DisplayName></Owner></Contents>"
        + keys({"l"}));
    const auto objects = list();
    ASSERT_TRUE(objects->next());
    const norla::CS3ListedObject first = *objects->getCurrent();
    EXPECT_EQ(first.key, "k");
    EXPECT_EQ(first.lastModified, "2026-11-21T08:49:37.000Z");
    EXPECT_EQ(first.eTag, "\"1\"");
    EXPECT_EQ(first.size, 5497558138880);
    EXPECT_EQ(first.storageClass, "STANDARD");
    EXPECT_EQ(first.ownerId, "i");
    EXPECT_EQ(first.ownerName, "n");
    ASSERT_TRUE(objects->next());
    EXPECT_EQ(objects->getCurrent()->size, -1);
    EXPECT_FALSE(objects->next());
    EXPECT_FALSE(objects->getCurrent());
    EXPECT_FALSE(objects->next());
}

TEST_F(CS3ObjectListingTest, asksForPageAfterPage)
{
    answerMore("<EncodingType>url</EncodingType>" + keys({"p/b"}), "t+1/=");
    answerLast(keys({"p/c"}));
    EXPECT_EQ(
        rest(*list({.prefix = "p/", .startAfter = "p/a", .maxKeys = 1, .fetchOwner = true})), (Keys{"p/b", "p/c"}));
    const std::string common = "GET /b?list-type=2&encoding-type=url&prefix=p%2F&max-keys=1&fetch-owner=true&";
    EXPECT_EQ(requestLine(0), common + "start-after=p%2Fa HTTP/1.1");
    EXPECT_EQ(requestLine(1), common + "continuation-token=t%2B1%2F%3D HTTP/1.1");
}

TEST_F(CS3ObjectListingTest, readsNamesThatArePercentEncoded)
{
    answerLast("<EncodingType>url</EncodingType>" + keys({"a%01+%2B%2525"}));
    EXPECT_EQ(rest(*list()), Keys{"a\x01 +%25"});
}

TEST_F(CS3ObjectListingTest, asksForNamesAsTheyStandWhereTheStoreDoesNotSayWhetherItEncodesThem)
{
    answerMore(keys({"a%2501%20"}), "t");
    answerMore(keys({"a%01 "}), "t%");
    answerLast(keys({"b"}));
    EXPECT_EQ(rest(*list()), (Keys{"a%01 ", "b"}));
    EXPECT_EQ(requestLine(1), "GET /b?list-type=2 HTTP/1.1");
    EXPECT_EQ(requestLine(2), "GET /b?list-type=2&continuation-token=t%25 HTTP/1.1");
}

TEST_F(CS3ObjectListingTest, asksOnceWhereItDoesNotMatterWhetherNamesAreEncoded)
{
    answerLast(keys({"a/b c"}));
    EXPECT_EQ(rest(*list()), Keys{"a/b c"});
}

TEST_F(CS3ObjectListingTest, takesATokenThatXMLCannotHold)
{
    answerMore("<EncodingType>url</EncodingType>" + keys({"%01%2501"}), "\x01%01&#xfffe;");
    answerLast("<EncodingType>url</EncodingType>");
    EXPECT_EQ(rest(*list()), Keys{"\x01%01"});
    EXPECT_EQ(requestLine(1), "GET /b?list-type=2&encoding-type=url&continuation-token=%01%2501%EF%BF%BE HTTP/1.1");
}

TEST_F(CS3ObjectListingTest, readsNamesThatXMLCannotHold)
{
    answerLast(keys({"a&#x01;%01\x02"}));
    answerLast(keys({"a&#x01;%01\x02"}));
    EXPECT_EQ(rest(*list()), Keys{"a\x01%01\x02"});
}

TEST_F(CS3ObjectListingTest, readsPercentSignsThatAreWrittenAsReferences)
{
    answerLast(keys({"\x01&#37;41&#x25;42&#x00025;43"}));
    EXPECT_EQ(rest(*list()), Keys{"\x01%41%42%43"});
}

TEST_F(CS3ObjectListingTest, goesOnBehindAnEmptyPage)
{
    answerMore("", "t");
    answerLast(keys({"a"}));
    EXPECT_EQ(rest(*list()), Keys{"a"});
}

TEST_F(CS3ObjectListingTest, doesNotAskForEmptyPagesForEver)
{
    for (int i = 0; i < 1000; ++i)
        answerMore("", std::to_string(i));
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' does not end: there are a thousand empty pages.");
}

TEST_F(CS3ObjectListingTest, endsWithAnErrorWhenATokenWasThereBefore)
{
    answerMore(keys({"a"}), "t");
    answerMore(keys({"b"}), "u");
    answerMore(keys({"c"}), "t");
    answerLast(keys({"c"}));
    const auto objects = list();
    EXPECT_TRUE(objects->next());
    EXPECT_TRUE(objects->next());
    EXPECT_EQ(support::messageOf([&] { objects->next(); }),
        "The listing of the bucket 'b' does not end: it came to the marker 't' again.");
    EXPECT_FALSE(objects->getCurrent());
    EXPECT_EQ(rest(*objects), Keys{"c"}); // the store thought better of it
    EXPECT_EQ(requestLine(2), requestLine(3));
}

TEST_F(CS3ObjectListingTest, endsWithAnErrorWhenPagesComeAgainUnderNewTokens)
{
    answerMore(keys({"b", "a"}), "t");
    answerMore(keys({"d", "c"}), "u");
    answerMore("", "v");
    answerMore("", "w");
    answerMore(keys({"b", "a"}), "x");
    answerLast(keys({"e"}));
    const auto objects = list();
    for (const char* const key : {"b", "a", "d", "c"}) {
        EXPECT_TRUE(objects->next());
        EXPECT_EQ(objects->getCurrent()->key.toUTF8(), key);
    }
    EXPECT_EQ(support::messageOf([&] { objects->next(); }),
        "The listing of the bucket 'b' does not end: a page has the same objects as one before it, up to 'b'.");
    EXPECT_FALSE(objects->getCurrent());
    EXPECT_EQ(rest(*objects), Keys{"e"}); // the store thought better of it
    EXPECT_EQ(requestLine(4), requestLine(5));
}

TEST_F(CS3ObjectListingTest, takesAPageThatIsAskedForAgain)
{
    answerDocument(page("<IsTruncated>true</IsTruncated>" + keys({"a"})));
    answerLast(keys({"a"}));
    const auto objects = list();
    EXPECT_THROW(objects->next(), kx::CError);
    EXPECT_EQ(rest(*objects), Keys{"a"});
}

TEST_F(CS3ObjectListingTest, endsWithAnErrorWhenThePageDoesNotSayWhereItGoesOn)
{
    answerDocument(page("<IsTruncated>true</IsTruncated>"));
    EXPECT_EQ(messageOf(),
        "The listing of the bucket 'b' goes on, but does not say where: 'NextContinuationToken' is missing.");
}

TEST_F(CS3ObjectListingTest, endsWithAnErrorWhenThePageDoesNotSayWhetherItGoesOn)
{
    answerDocument(page(keys({"a"})));
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' does not say whether it goes on: 'IsTruncated' is ''.");
}

TEST_F(CS3ObjectListingTest, refusesAnObjectOutsideThePrefix)
{
    answerLast(keys({"pa", "q"}));
    EXPECT_EQ(messageOf({.prefix = "p"}),
        "The listing of the bucket 'b' has 'q', which was not asked for: it does not begin with 'p'.");
}

TEST_F(CS3ObjectListingTest, refusesAnObjectThatIsNotBehindTheStart)
{
    answerLast(keys({"b"}));
    EXPECT_EQ(messageOf({.startAfter = "b"}),
        "The listing of the bucket 'b' has 'b', which was not asked for: it is not behind 'b'.");
}

TEST_F(CS3ObjectListingTest, refusesObjectsThatMakeNoSense)
{
    answerLast("<Contents/>");
    answerLast("<Contents><Key>a</Key><Size>-5</Size></Contents>");
    answerLast("<Contents><Key>a</Key><Size>99999999999999999999</Size></Contents>");
    answerLast("<CommonPrefixes><Prefix>a/</Prefix></CommonPrefixes>");
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' has an entry without a name.");
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' has an object of the size '-5'.");
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' has an object of the size '99999999999999999999'.");
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' sums up objects, which was not asked for.");
}

TEST_F(CS3ObjectListingTest, refusesANameThatIsNotUTF8)
{
    answerLast("<EncodingType>url</EncodingType>" + keys({"%FF"}));
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' has the name '%FF', which is not UTF-8.");
}

TEST_F(CS3ObjectListingTest, showsTheBeginningOfANameThatHasNoEnd)
{
    const std::string longName(1 << 20, 'k');
    const kx::String shown = kx::String::fromUTF8(longName.substr(0, 1024)) + "...";
    answerLast(keys({longName.c_str()}));
    EXPECT_EQ(messageOf({.prefix = "p"}),
        "The listing of the bucket 'b' has '" + shown + "', which was not asked for: it does not begin with 'p'.");
    answerLast("<EncodingType>url</EncodingType>" + keys({(longName + "%FF").c_str()}));
    EXPECT_EQ(messageOf(), "The listing of the bucket 'b' has the name '" + shown + "', which is not UTF-8.");
}

TEST_F(CS3ObjectListingTest, refusesWhatIsNoPage)
{
    answerDocument("");
    answerDocument("<html/>");
    const kx::String title = "Error parsing Amazon S3 'list objects' result of the bucket 'b': ";
    EXPECT_EQ(messageOf(), title + "invalid XML.");
    EXPECT_EQ(messageOf(), title + "unknown root element 'html'.");
}

TEST_F(CS3ObjectListingTest, refusesAPageOfMoreElementsThanAnyHas)
{
    std::string elements;
    for (int i = 0; i < 300'000; ++i)
        elements += "<a/>";
    answerLast(elements);
    answerLast(keys({"a"}));
    const auto objects = list();
    EXPECT_EQ(support::messageOf([&] { objects->next(); }),
        "Error parsing Amazon S3 'list objects' result of the bucket 'b': more than 300000 elements.");
    EXPECT_EQ(rest(*objects), Keys{"a"});
}

TEST_F(CS3ObjectListingTest, doesNotTakeAFailureBehindA200ForAPage)
{
    answerDocument(errorDocument("InternalError"));
    answerLast(keys({"a"}));
    const auto objects = list();
    const auto error = support::errorOf([&] { objects->next(); });
    ASSERT_TRUE(dynamic_cast<norla::CS3Error*>(error.get()));
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
    EXPECT_EQ(rest(*objects), Keys{"a"});
}

TEST_F(CS3ObjectListingTest, wantsANameAndPagesOfSomething)
{
    EXPECT_THROW(kx::newObj<CS3ObjectListing>(&store(), &request(), ""), kx::CInvalidArgError);
    EXPECT_THROW(list({.maxKeys = 0}), kx::CInvalidArgError);
    EXPECT_THROW(list({.maxKeys = -2}), kx::CInvalidArgError);
    EXPECT_THROW(list({.prefix = kx::String(std::wstring(1, wchar_t{0xd800}))}), kx::CError);
}

} // namespace
