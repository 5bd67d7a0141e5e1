#include "norla/s3/CS3VersionEnum.h"

#include "tests/norla/s3/CS3ListFixture.h"

#include <vector>

namespace {

using norla::CS3VersionEnum;
using Versions = std::vector<kx::String>;

class CS3VersionEnumTest : public CS3ListFixture {
protected:
    static std::string version(const std::string& key, const std::string& id, const std::string& more = "")
    {
        return "<Version><Key>" + key + "</Key><VersionId>" + id + "</VersionId>" + more + "</Version>";
    }

    void answerPage(const std::string& content, bool isTruncated)
    {
        answerDocument("<ListVersionsResult><EncodingType>url</EncodingType>" + content + "<IsTruncated>"
            + (isTruncated ? "true" : "false") + "</IsTruncated></ListVersionsResult>");
    }

    static std::string next(const std::string& key, const std::string& id)
    {
        return "<NextKeyMarker>" + key + "</NextKeyMarker><NextVersionIdMarker>" + id + "</NextVersionIdMarker>";
    }

    kx::P<CS3VersionEnum> list(const norla::CS3ListOptions& options = {})
    {
        return kx::newObj<CS3VersionEnum>(&store(), &request(), "b", options);
    }

    static Versions rest(CS3VersionEnum& versions)
    {
        Versions all;
        while (versions.next())
            all.push_back(versions.getCurrent()->key + "=" + versions.getCurrent()->versionId);
        return all;
    }
};

TEST_F(CS3VersionEnumTest, tellsVersionsFromMarksOfRemovals)
{
    answerPage("<DeleteMarker><Key>a%01</Key><VersionId>v2</VersionId><IsLatest>true</IsLatest></DeleteMarker>"
            + version("a%01", "v1", "<IsLatest>false</IsLatest><Size>3</Size>"),
        false);
    const auto versions = list();
    ASSERT_TRUE(versions->next());
    EXPECT_TRUE(versions->getCurrent()->isDeleteMarker);
    EXPECT_TRUE(versions->getCurrent()->isLatest);
    EXPECT_EQ(versions->getCurrent()->size, -1);
    ASSERT_TRUE(versions->next());
    EXPECT_FALSE(versions->getCurrent()->isDeleteMarker);
    EXPECT_FALSE(versions->getCurrent()->isLatest);
    EXPECT_EQ(versions->getCurrent()->size, 3);
    EXPECT_EQ(versions->getCurrent()->key, "a\x01");
    EXPECT_EQ(versions->getCurrent()->versionId, "v1");
    EXPECT_FALSE(versions->next());
}

TEST_F(CS3VersionEnumTest, goesOnBetweenTheVersionsOfAnObject)
{
    answerPage(version("a+b", "v2") + next("a+b", "v2"), true);
    answerPage(version("a+b", "v1") + next("a+b", "v1"), true);
    answerPage(version("c", "v"), false);
    EXPECT_EQ(rest(*list({.prefix = {}, .startAfter = "a", .maxKeys = 1})), (Versions{"a b=v2", "a b=v1", "c=v"}));
    EXPECT_EQ(requestLine(0), "GET /b?versions&encoding-type=url&max-keys=1&key-marker=a HTTP/1.1");
    EXPECT_EQ(
        requestLine(1), "GET /b?versions&encoding-type=url&max-keys=1&key-marker=a%20b&version-id-marker=v2 HTTP/1.1");
}

TEST_F(CS3VersionEnumTest, leavesOutTheObjectThatItBeginsBehind)
{
    answerPage(version("a", "v1") + version("b", "v1"), false);
    EXPECT_EQ(rest(*list({.startAfter = "a"})), Versions{"b=v1"});
}

TEST_F(CS3VersionEnumTest, readsAMarkerThatIsNotEncoded)
{
    answerPage(version("a%01%2B+", "v") + next("a\x01+ ", "v"), true);
    answerPage("", false);
    rest(*list());
    EXPECT_EQ(requestLine(1), "GET /b?versions&encoding-type=url&key-marker=a%01%2B%20&version-id-marker=v HTTP/1.1");
}

TEST_F(CS3VersionEnumTest, refusesAVersionOutsideThePrefix)
{
    answerPage(version("k", "v"), false);
    EXPECT_EQ(support::messageOf([this] { list({.prefix = "l"})->next(); }),
        "The listing of the bucket 'b' has 'k', which was not asked for: it does not begin with 'l'.");
}

TEST_F(CS3VersionEnumTest, refusesAMarkOfARemovalOutsideThePrefix)
{
    answerPage("<DeleteMarker><Key>k</Key><VersionId>v</VersionId></DeleteMarker>", false);
    EXPECT_EQ(support::messageOf([this] { list({.prefix = "l"})->next(); }),
        "The listing of the bucket 'b' has 'k', which was not asked for: it does not begin with 'l'.");
}

TEST_F(CS3VersionEnumTest, endsWithAnErrorWhenAPageComesBackToTheStart)
{
    answerPage(version("b", "v") + "<NextKeyMarker>a</NextKeyMarker>", true);
    EXPECT_EQ(support::messageOf([this] { rest(*list({.startAfter = "a"})); }),
        "The listing of the bucket 'b' does not end: it came to the marker 'a' again.");
}

TEST_F(CS3VersionEnumTest, endsWithAnErrorWhenAVersionDoesNotAdvance)
{
    answerPage(version("a", "v") + next("a", "v"), true);
    answerPage(version("a", "v") + next("a", "v"), true);
    EXPECT_EQ(support::messageOf([this] { rest(*list()); }),
        "The listing of the bucket 'b' does not end: it came to the marker 'a', 'v' again.");
}

TEST_F(CS3VersionEnumTest, endsWithAnErrorWhenPagesComeAgainUnderNewMarkers)
{
    answerPage(version("a", "v2") + next("a", "v2"), true);
    answerPage(version("a", "v1") + next("a", "v1"), true);
    answerPage(version("a", "v2") + next("a", "v0"), true);
    EXPECT_EQ(support::messageOf([this] { rest(*list()); }),
        "The listing of the bucket 'b' does not end: a page has the same objects as one before it, up to 'a'.");
}

} // namespace
