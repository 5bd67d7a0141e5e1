// What of names and values is hard to get to a store, and back.
#include "kx/containers/TArray.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3ObjectEnum.h"
#include "tests/live/S3Session.h"
#include "tests/support/errorOf.h"

namespace {

class S3DotNameTest : public live::S3Session, public testing::WithParamInterface<kx::String> {};

TEST_P(S3DotNameTest, namesAnObjectBesideOthers)
{
    put("neighbour", "left alone");
    put(GetParam(), "content");
    EXPECT_EQ(get(GetParam()), "content");
    EXPECT_EQ(get(GetParam(), 3, 2), "te");
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, GetParam()), 7);
    EXPECT_EQ(keysOf(""), (Keys{GetParam(), "neighbour"}));
    client().copyObject(request(), m_bucket, GetParam(), "copy");
    EXPECT_EQ(get("copy"), "content");
    client().deleteObject(request(), m_bucket, GetParam());
    EXPECT_FALSE(client().objectExists(request(), m_bucket, GetParam()));
    EXPECT_EQ(keysOf(""), (Keys{"copy", "neighbour"}));
}

TEST_P(S3DotNameTest, namesABucketThatDoesNotExist)
{
    put("neighbour", "left alone");
    EXPECT_TRUE(support::errorOf([this] { client().deleteObject(request(), GetParam(), m_bucket); }));
    EXPECT_TRUE(support::errorOf([this] { client().listObjects(request(), GetParam(), "", "", "", -1); }));
    EXPECT_FALSE(client().objectExists(request(), GetParam(), m_bucket));
    EXPECT_EQ(keysOf(""), Keys{"neighbour"});
}

INSTANTIATE_TEST_SUITE_P(Names, S3DotNameTest, testing::ValuesIn(kx::TArray<kx::String>{".", ".."}),
    [](const auto& tested) { return tested.param == "." ? "One" : "Two"; });

class S3NamesTest : public live::S3Session {
protected:
    Keys enumerated(const kx::String& prefix, int maxKeys)
    {
        norla::CS3ObjectEnum objects(&client(), &request(), m_bucket, prefix, "", maxKeys);
        Keys found;
        while (objects.next())
            found.push_back(objects.getCurrObject()->getKey());
        return found;
    }
};

TEST_F(S3NamesTest, listsNamesThatXMLForbidsOnDemand)
{
    const Keys keys{"a\x01", "a\x02z", "a b+c%41&<", "a\x7f", L"a\u00e4\uffff"};
    for (const kx::String& key : keys)
        put(key, "x");
    EXPECT_EQ(
        support::messageOf([this] { keysOf(""); }), "Error parsing Amazon S3 'list objects' result: invalid XML.");
    client().setURLEncodedListings(true);
    EXPECT_EQ(keysOf(""), keys);
    for (const int maxKeys : {1, 2, -1})
        EXPECT_EQ(enumerated("a", maxKeys), keys) << maxKeys;
    EXPECT_EQ(enumerated("a\x02", -1), Keys{keys[1]});
}

TEST_F(S3NamesTest, decodesWhatAListingSumsUp)
{
    put("a b\x01/1", "x");
    put("a b\x01/2", "x");
    put("c+d\x01/1", "x");
    client().setURLEncodedListings(true);
    const auto page = client().listObjects(request(), m_bucket, "", "/", "", 1);
    EXPECT_EQ(page->getCommonPrefixes(), kx::TArray<kx::String>{"a b\x01/"});
    EXPECT_EQ(page->getNextMarker(), "a b\x01/");
}

TEST_F(S3NamesTest, sendsAnEmptyValueThatIsSigned)
{
    const auto headers = client().beginPrepareRequest(request(), client().getObjectURL(request(), m_bucket, "k"));
    headers->add("x-amz-meta-note", "");
    headers->addEmpty("X-Amz-Meta-Other");
    request().setHTTPMethod("PUT");
    request().setSendDataSize(0);
    client().finishPrepareRequest(request());
    EXPECT_EQ(client().performRequest(request()), 1);
    EXPECT_TRUE(client().objectExists(request(), m_bucket, "k"));
}

TEST_F(S3NamesTest, fetchesAPartOfANameThatIsAskedForBehindItsEnd)
{
    put("k", "0123456789");
    EXPECT_EQ(get("k", 8, 100), "89");
    EXPECT_EQ(get("k", 8, -1), "89");
    EXPECT_EQ(get("k", 0, 100), "0123456789");
}

} // namespace
