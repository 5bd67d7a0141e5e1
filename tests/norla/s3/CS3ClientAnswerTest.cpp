// What getObject() makes of answers that are not what it asked for.
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

namespace {

/// What is asked for, what comes, and whether that is believed.
struct CCase {
    const char* name;
    long long start;
    long long length;
    int status;
    const char* contentRange; ///< empty for none
    const char* body;
    bool isTaken;
};

class CS3ClientAnswerTest : public CS3ClientFixture, public testing::WithParamInterface<CCase> {
protected:
    static std::string answerTo(const CCase& asked)
    {
        const std::string range = asked.contentRange;
        return "HTTP/1.1 " + std::to_string(asked.status)
            + " Some Reason\r\nConnection: close\r\nContent-Length: " + std::to_string(std::string(asked.body).size())
            + "\r\n" + (range.empty() ? "" : "Content-Range: " + range + "\r\n") + "\r\n" + asked.body;
    }
};

TEST_P(CS3ClientAnswerTest, isTakenOnlyWhenItIsWhatWasAskedFor)
{
    const CCase& asked = GetParam();
    answer(answerTo(asked));
    const auto error = support::errorOf([&] { client().getObject(request(), "b", "k/1", asked.start, asked.length); });
    EXPECT_EQ(!error, asked.isTaken);
    EXPECT_EQ(body(), asked.body);
}

INSTANTIATE_TEST_SUITE_P(Answers, CS3ClientAnswerTest,
    testing::Values(CCase{"part", 3, 2, 206, "bytes 3-4/7", "34", true},
        CCase{"partInOtherLetters", 3, 2, 206, "BYTES 3-4/7", "34", true},
        CCase{"partCutAtTheEnd", 3, 9, 206, "bytes 3-6/7", "3456", true},
        CCase{"partToTheEnd", 3, -1, 206, "bytes 3-6/7", "3456", true},
        CCase{"partOfUnknownTotal", 3, 2, 206, "bytes 3-4/*", "34", true},
        CCase{"shortPartOfUnknownTotal", 3, 9, 206, "bytes 3-4/*", "34", true},
        CCase{"wholeAsPart", 0, 7, 206, "bytes 0-6/7", "0123456", true},
        CCase{"wholeObject", 0, 7, 200, "", "0123456", true},
        CCase{"shorterWholeObject", 0, 9, 200, "", "0123456", true}, CCase{"emptyWholeObject", 0, 9, 200, "", "", true},
        CCase{"longerWholeObject", 0, 2, 200, "", "0123456789", false},
        CCase{"wholeObjectForItsTail", 3, -1, 200, "", "0123456789", false},
        CCase{"wholeObjectForAMiddle", 3, 9, 200, "", "0123456", false},
        CCase{"partWithoutARange", 0, 2, 206, "", "01", false},
        CCase{"anotherStart", 3, 2, 206, "bytes 4-5/7", "45", false},
        CCase{"anotherStartWithAsManyBytes", 3, 2, 206, "bytes 2-4/7", "34", false},
        CCase{"anotherEnd", 3, 2, 206, "bytes 3-5/7", "345", false},
        CCase{"anotherEndOfUnknownTotal", 3, 2, 206, "bytes 3-5/*", "345", false},
        CCase{"endBeforeTheObjects", 3, -1, 206, "bytes 3-4/7", "34", false},
        CCase{"endBeforeWhatWasAsked", 3, 3, 206, "bytes 3-4/7", "34", false},
        CCase{"anotherUnit", 3, 2, 206, "items 3-4/7", "34", false},
        CCase{"noNumbers", 3, 2, 206, "bytes */7", "34", false}, CCase{"unreadable", 3, 2, 206, "sure", "34", false},
        CCase{"fewerBytesThanItSays", 3, 2, 206, "bytes 3-4/7", "3", false},
        CCase{"moreBytesThanItSays", 3, 2, 206, "bytes 3-4/7", "345", false},
        CCase{"anotherSuccess", 0, 2, 203, "", "01", false},
        CCase{"anythingWhenAllIsAskedFor", 0, -1, 203, "bytes 7-9/1", "0123456", true}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(CS3ClientAnswerTest, isToldBesideWhatWasAskedFor)
{
    answer(answerTo({"", 0, 2, 200, "", "0123456789", false}));
    const auto error = support::errorOf([this] { client().getObject(request(), "b", "k/1", 0, 2); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "The store was asked for 'bytes=0-1' of the object 'k/1' in the bucket 'b' and gave something else: status "
        "200, "
        "Content-Range '', 10 bytes.");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CS3ClientAnswerTest, isToldWithTheRangeThatItGives)
{
    answer(answerTo({"", 3, -1, 206, "bytes 4-6/7", "456", false}));
    EXPECT_EQ(support::messageOf([this] { client().getObject(request(), "b", "k", 3, -1); }),
        "The store was asked for 'bytes=3-' of the object 'k' in the bucket 'b' and gave something else: status 206, "
        "Content-Range 'bytes 4-6/7', 3 bytes.");
}

TEST_F(CS3ClientAnswerTest, isLeftToWhoPerformsThePreparedRequest)
{
    answer(answerTo({"", 0, 2, 200, "", "0123456789", false}));
    client().prepareGetObjectRequest(request(), "b", "k", 0, 2);
    EXPECT_EQ(client().performRequest(request()), 1);
}

} // namespace
