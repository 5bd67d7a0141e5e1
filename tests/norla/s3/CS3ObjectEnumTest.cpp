#include "norla/s3/CS3ObjectEnum.h"

#include "kx/containers/TArray.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <malloc.h>
#include <string>

namespace {

using norla::CS3ObjectEnum;

class CS3ObjectEnumTest : public CS3ClientFixture {
protected:
    static std::string page(std::initializer_list<const char*> keys, bool isTruncated, const std::string& more = "")
    {
        std::string document = "<ListBucketResult>";
        for (const char* const key : keys)
            document += "<Contents><Key>" + std::string(key) + "</Key></Contents>";
        return document + "<IsTruncated>" + (isTruncated ? "true" : "false") + "</IsTruncated>" + more
            + "</ListBucketResult>";
    }

    void answerPage(std::initializer_list<const char*> keys, bool isTruncated, const std::string& more = "")
    {
        answer(answerWith(200, page(keys, isTruncated, more)));
    }

    kx::P<CS3ObjectEnum> enumerate(const kx::String& startMarker = "", int maxKeys = -1)
    {
        return kx::newObj<CS3ObjectEnum>(&client(), &request(), "b", "p", startMarker, maxKeys);
    }

    static std::vector<kx::String> rest(CS3ObjectEnum& objects)
    {
        std::vector<kx::String> keys;
        while (objects.next())
            keys.push_back(objects.getCurrObject()->getKey());
        return keys;
    }

    std::string requestLine(size_t connection)
    {
        const std::string sent = received(connection);
        return sent.substr(0, sent.find("\r\n"));
    }

    using Keys = std::vector<kx::String>;
};

TEST_F(CS3ObjectEnumTest, fetchesNothingBeforeItIsAsked)
{
    EXPECT_FALSE(enumerate()->getCurrObject());
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CS3ObjectEnumTest, isOverAtOnceInAnEmptyBucket)
{
    answerPage({}, false);
    const auto objects = enumerate();
    EXPECT_FALSE(objects->next());
    EXPECT_FALSE(objects->getCurrObject());
    EXPECT_FALSE(objects->next());
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CS3ObjectEnumTest, walksASinglePageWithOneRequest)
{
    answerPage({"pa", "pb"}, false);
    const auto objects = enumerate();
    EXPECT_EQ(rest(*objects), (Keys{"pa", "pb"}));
    EXPECT_FALSE(objects->next());
    EXPECT_FALSE(objects->getCurrObject());
    EXPECT_EQ(server().connectionCount(), 1u);
    EXPECT_EQ(requestLine(0), "GET /b?prefix=p HTTP/1.1");
}

TEST_F(CS3ObjectEnumTest, goesOnBehindTheLastKeyOfAPage)
{
    answerPage({"pa", "pb"}, true, "<NextMarker>px</NextMarker>");
    answerPage({"pc"}, false);
    EXPECT_EQ(rest(*enumerate()), (Keys{"pa", "pb", "pc"}));
    EXPECT_EQ(requestLine(1), "GET /b?prefix=p&marker=pb HTTP/1.1");
}

TEST_F(CS3ObjectEnumTest, asksForItsStartAndPageSize)
{
    answerPage({"pb"}, true);
    answerPage({"pc"}, false);
    rest(*enumerate("pa", 1));
    EXPECT_EQ(requestLine(0), "GET /b?prefix=p&marker=pa&max-keys=1 HTTP/1.1");
    EXPECT_EQ(requestLine(1), "GET /b?prefix=p&marker=pb&max-keys=1 HTTP/1.1");
}

TEST_F(CS3ObjectEnumTest, endsWithAnEmptyLastPage)
{
    answerPage({"pa"}, true);
    answerPage({}, false);
    EXPECT_EQ(rest(*enumerate()), Keys{"pa"});
}

TEST_F(CS3ObjectEnumTest, endsWithAnEmptyPageThatClaimsToGoOn)
{
    answerPage({"pa"}, true);
    answerPage({}, true);
    const auto objects = enumerate();
    EXPECT_EQ(rest(*objects), Keys{"pa"});
    EXPECT_FALSE(objects->nextPage());
    EXPECT_EQ(server().connectionCount(), 2u);
}

TEST_F(CS3ObjectEnumTest, canLeaveOutTheRestOfAPage)
{
    answerPage({"pa", "pb"}, true);
    answerPage({"pc"}, false);
    const auto objects = enumerate();
    EXPECT_TRUE(objects->next());
    EXPECT_TRUE(objects->nextPage());
    EXPECT_EQ(objects->getCurrObject()->getKey(), "pc");
    EXPECT_FALSE(objects->nextPage());
    EXPECT_FALSE(objects->getCurrObject());
}

TEST_F(CS3ObjectEnumTest, triesTheSamePageAgainAfterAFailure)
{
    answerPage({"pa"}, true);
    answer(answerWith(403, errorDocument("AccessDenied")));
    answer(answerWith(403, errorDocument("AccessDenied")));
    answerPage({"pb"}, false);
    const auto objects = enumerate();
    EXPECT_TRUE(objects->next());
    EXPECT_THROW(objects->next(), norla::CS3Error);
    EXPECT_FALSE(objects->getCurrObject());
    EXPECT_THROW(objects->next(), norla::CS3Error);
    EXPECT_EQ(rest(*objects), Keys{"pb"});
    EXPECT_EQ(requestLine(1), requestLine(3));
}

TEST_F(CS3ObjectEnumTest, triesItsFirstPageAgainAfterAFailure)
{
    answer(answerWith(403, errorDocument("AccessDenied")));
    answerPage({"pa"}, false);
    const auto objects = enumerate();
    EXPECT_THROW(objects->next(), norla::CS3Error);
    EXPECT_EQ(rest(*objects), Keys{"pa"});
}

TEST_F(CS3ObjectEnumTest, endsWithAnErrorWhenAPageRepeatsTheOneBefore)
{
    answerPage({"pa", "pb"}, true);
    answerPage({"pa", "pb"}, true);
    const auto objects = enumerate();
    for (const kx::String& key : kx::TArray<kx::String>{"pa", "pb", "pa", "pb"}) {
        ASSERT_TRUE(objects->next());
        EXPECT_EQ(objects->getCurrObject()->getKey(), key);
    }
    for (int i = 0; i < 2; ++i) {
        const auto error = support::errorOf([&] { objects->next(); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getMessage(), "The listing of the bucket 'b' does not end: it came to the marker 'pb' again.");
        EXPECT_EQ(error->getDomain(), "");
        EXPECT_EQ(error->getCode(), -1);
        EXPECT_FALSE(objects->getCurrObject());
    }
    EXPECT_EQ(server().connectionCount(), 2u);
}

TEST_F(CS3ObjectEnumTest, endsWithAnErrorWhenPagesGoRoundInACircle)
{
    for (const char* const key : {"pa", "pb", "pc", "pa"})
        answerPage({key}, true);
    EXPECT_EQ(support::messageOf([this] { rest(*enumerate()); }),
        "The listing of the bucket 'b' does not end: it came to the marker 'pa' again.");
    EXPECT_EQ(server().connectionCount(), 4u);
}

TEST_F(CS3ObjectEnumTest, endsWithAnErrorWhenAPageComesBackToTheStart)
{
    answerPage({"pb", "pa"}, true);
    EXPECT_EQ(support::messageOf([this] { rest(*enumerate("pa")); }),
        "The listing of the bucket 'b' does not end: it came to the marker 'pa' again.");
}

TEST_F(CS3ObjectEnumTest, passesArgumentErrorsOn)
{
    const auto objects = kx::newObj<CS3ObjectEnum>(&client(), &request(), "", "", "", -1);
    EXPECT_EQ(support::messageOf([&] { objects->next(); }),
        "Invalid argument passed to 'CS3Client::prepareListObjectsRequest': bucket name must not be empty.");
}

/// Of the heap, in bytes; 0 where another one is in its place.
size_t heapInUse()
{
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST_F(CS3ObjectEnumTest, needsNoMoreMemoryForManyPagesOfLongNames)
{
    constexpr size_t nameSize = 1 << 18;
    constexpr int pageCount = 40;
    for (int i = 0; i < pageCount; ++i)
        answerPage({("p" + std::to_string(100 + i) + std::string(nameSize, 'k')).c_str()}, true);
    const auto objects = enumerate();
    ASSERT_TRUE(objects->next());
    const size_t before = heapInUse();
    for (int i = 1; i < pageCount; ++i)
        ASSERT_TRUE(objects->next());
    EXPECT_LT(heapInUse(), before + 3 * nameSize * pageCount); // the server keeps what it has received
}

} // namespace
