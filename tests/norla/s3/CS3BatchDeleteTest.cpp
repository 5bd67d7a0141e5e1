#include "norla/s3/CS3BatchDelete.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CS3ListFixture.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using norla::CS3BatchDelete;
using testing::HasSubstr;

class CS3BatchDeleteTest : public CS3ListFixture {
protected:
    CS3BatchDelete& removal() { return *m_removal; }

    static std::string document(const std::string& objects)
    {
        return documentToSend("Delete", objects + "<Quiet>true</Quiet>");
    }

    static std::string object(const std::string& key) { return "<Object><Key>" + key + "</Key></Object>"; }

    static std::string failure(const std::string& key, const std::string& code, const std::string& version = "")
    {
        return "<Error><Key>" + key + "</Key>" + (version.empty() ? "" : "<VersionId>" + version + "</VersionId>")
            + "<Code>" + code + "</Code><Message>Because</Message></Error>";
    }

    /// Answers a request that removes these.
    void answerRemoval(const std::string& objects, const std::string& failures)
    {
        answerBody(document(objects).size(), "<DeleteResult>" + failures + "</DeleteResult>");
    }

    const kx::P<CS3BatchDelete> m_removal = kx::newObj<CS3BatchDelete>(&store(), &request(), "b");
};

TEST_F(CS3BatchDeleteTest, removesManyObjectsWithARequest)
{
    const std::string objects
        = object("a") + "<Object><Key>a&lt;b</Key><VersionId>v1</VersionId></Object>" + object("c");
    answerRemoval(objects, "");
    removal().add("a");
    removal().add("a<b", "v1");
    removal().add("c");
    EXPECT_EQ(server().connectionCount(), 0u);
    removal().finish();
    EXPECT_EQ(requestLine(), "POST /b?delete HTTP/1.1");
    EXPECT_EQ(sentBody(), document(objects));
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Type: application/xml\r\n"));
    EXPECT_EQ(removal().getRemovedCount(), 3);
    EXPECT_TRUE(removal().getFailures().empty());
}

TEST_F(CS3BatchDeleteTest, sendsTheMD5OfTheDocument)
{
    answerRemoval(object("a"), "");
    removal().add("a");
    removal().finish();
    EXPECT_THAT(received(), HasSubstr("\r\nContent-MD5: Nfr3MOadK3SZgIV8nvJZwA==\r\n"));
}

TEST_F(CS3BatchDeleteTest, sendsNothingForNothing)
{
    removal().finish();
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CS3BatchDeleteTest, sendsARequestForEveryThousandObjects)
{
    std::string thousand;
    for (int i = 0; i < 1000; ++i)
        thousand += object("k");
    answerRemoval(thousand, failure("k", "AccessDenied"));
    answerRemoval(object("k"), "");
    std::vector<std::pair<long long, long long>> told;
    removal().setProgress([&](long long removed, long long failed) { told.emplace_back(removed, failed); });
    for (int i = 0; i < 1000; ++i)
        removal().add("k");
    EXPECT_EQ(server().connectionCount(), 0u);
    removal().add("k");
    EXPECT_EQ(server().connectionCount(), 1u);
    removal().finish();
    EXPECT_EQ(told, (std::vector<std::pair<long long, long long>>{{999, 1}, {1000, 1}}));
    EXPECT_EQ(sentBody(1), document(object("k")));
}

TEST_F(CS3BatchDeleteTest, sendsNoDocumentOfMoreThanAMebibyte)
{
    const std::string name(1024, '&');
    std::string escaped;
    for (size_t i = 0; i < name.size(); ++i)
        escaped += "&amp;";
    std::string objects;
    int count = 0;
    while (documentToSend("Delete", objects).size() - 9 <= 1'000'000) { // without the end of the root
        objects += object(escaped);
        ++count;
    }
    ASSERT_LT(document(objects).size(), size_t{1} << 20);
    answerRemoval(objects, "");
    for (int i = 0; i <= count; ++i)
        removal().add(kx::String::fromLatin1(name));
    EXPECT_EQ(removal().getRemovedCount(), count);
}

TEST_F(CS3BatchDeleteTest, collectsWhatTheStoreDoesNotRemove)
{
    const std::string objects = "<Object><Key>a</Key><VersionId>v1</VersionId></Object>"
                                "<Object><Key>a</Key><VersionId>v2</VersionId></Object>"
        + object("b") + object("c");
    answerRemoval(objects,
        failure("a", "AccessDenied", "v2") + failure("c", "NoSuchKey") + failure("a", "AccessDenied", "v2")
            + failure("b", "InternalError", "null") + "<Deleted><Key>zz</Key></Deleted>");
    removal().add("a", "v1");
    removal().add("a", "v2");
    removal().add("b");
    removal().add("c");
    removal().finish();
    const auto failures = removal().takeFailures();
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0].key, "a");
    EXPECT_EQ(failures[0].versionId, "v2");
    EXPECT_EQ(failures[0].code, "AccessDenied");
    EXPECT_EQ(failures[0].message, "Because");
    EXPECT_EQ(failures[1].key, "b");
    EXPECT_EQ(failures[1].versionId, "");
    EXPECT_EQ(removal().getRemovedCount(), 2);
    EXPECT_TRUE(removal().getFailures().empty());
}

TEST_F(CS3BatchDeleteTest, knowsAKeyWhoseLineEndsTheAnswerHasLost)
{
    answerRemoval(object("a&#13;b&#13;&#10;"), failure("a\rb\r\n", "AccessDenied"));
    removal().add("a\rb\r\n");
    removal().finish();
    ASSERT_EQ(removal().getFailures().size(), 1u);
    EXPECT_EQ(removal().getFailures()[0].key, "a\rb\r\n");
}

TEST_F(CS3BatchDeleteTest, refusesAnAnswerAboutOtherObjectsAndTriesAgain)
{
    answerRemoval(object("a"), failure("z", "AccessDenied"));
    answerRemoval(object("a"), "");
    removal().add("a");
    EXPECT_EQ(support::messageOf([this] { removal().finish(); }),
        "The store tells of the object 'z' in the bucket 'b', which was not to be removed: AccessDenied.");
    EXPECT_EQ(removal().getRemovedCount(), 0);
    removal().finish();
    EXPECT_EQ(removal().getRemovedCount(), 1);
}

TEST_F(CS3BatchDeleteTest, doesNotTakeAFailureBehindA200ForASuccess)
{
    answerBody(document(object("a")).size(), errorDocument("InternalError"));
    answerBody(document(object("a")).size(), "");
    removal().add("a");
    const auto error = support::errorOf([this] { removal().finish(); });
    ASSERT_TRUE(dynamic_cast<norla::CS3Error*>(error.get()));
    EXPECT_EQ(support::messageOf([this] { removal().finish(); }),
        "Error parsing Amazon S3 'delete objects' result of the bucket 'b': invalid XML.");
}

TEST_F(CS3BatchDeleteTest, removesByARequestOfItsOwnWhatXMLHasNoWayToWrite)
{
    answer("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    answer(answerWith(404, errorDocument("NoSuchKey")));
    answer(answerWith(403, errorDocument("AccessDenied")));
    removal().add("a\x01", "v+1");
    removal().add("b\x01");
    removal().add("c\x01", "v2");
    EXPECT_EQ(requestLine(), "DELETE /b/a%01?versionId=v%2B1 HTTP/1.1");
    EXPECT_EQ(removal().getRemovedCount(), 2);
    ASSERT_EQ(removal().getFailures().size(), 1u);
    EXPECT_EQ(removal().getFailures()[0].key, "c\x01");
    EXPECT_EQ(removal().getFailures()[0].versionId, "v2");
    EXPECT_EQ(removal().getFailures()[0].code, "AccessDenied");
}

TEST_F(CS3BatchDeleteTest, takesAMissingBucketForNoFailureOfAnObject)
{
    answer(answerWith(404, errorDocument("NoSuchBucket")));
    answer(answerWith(501, errorDocument("NotImplemented")));
    EXPECT_THROW(removal().add("a\x01"), norla::CS3Error);
    EXPECT_THROW(removal().add("a\x01"), norla::CS3Error);
    EXPECT_TRUE(removal().getFailures().empty());
}

TEST_F(CS3BatchDeleteTest, passesOnWhatProgressThrowsAndGoesOnBehindIt)
{
    answerRemoval(object("a"), "");
    answerRemoval(object("b"), "");
    removal().setProgress([](long long, long long) { throw std::runtime_error("enough"); });
    removal().add("a");
    EXPECT_THROW(removal().finish(), std::runtime_error);
    removal().setProgress({});
    removal().add("b");
    removal().finish();
    EXPECT_EQ(removal().getRemovedCount(), 2);
}

TEST_F(CS3BatchDeleteTest, wantsNames)
{
    EXPECT_THROW(removal().add(""), kx::CInvalidArgError);
    EXPECT_THROW(removal().add(kx::String(std::wstring(1, wchar_t{0xd800}))), kx::CError);
    EXPECT_THROW(kx::newObj<CS3BatchDelete>(&store(), &request(), ""), kx::CInvalidArgError);
    removal().finish();
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CS3BatchDeleteTest, countsEachFailureOfAnObjectWhoseVersionsTheStoreDoesNotName)
{
    const std::string objects = "<Object><Key>a</Key><VersionId>v1</VersionId></Object>"
                                "<Object><Key>a</Key><VersionId>v2</VersionId></Object>";
    answerRemoval(objects, failure("a", "AccessDenied") + failure("a", "AccessDenied"));
    removal().add("a", "v1");
    removal().add("a", "v2");
    removal().finish();
    EXPECT_EQ(removal().getRemovedCount(), 0);
    EXPECT_EQ(removal().getFailures().size(), 2u);
}

} // namespace
