// What of names and values is hard to get to a store, and back.
#include "tests/live/S3Session.h"
#include "tests/support/errorOf.h"

namespace {

class S3NamesTest : public live::S3Session {};

TEST_F(S3NamesTest, fetchesAPartOfANameThatIsAskedForBehindItsEnd)
{
    put("k", "0123456789");
    EXPECT_EQ(get("k", 8, 100), "89");
    EXPECT_EQ(get("k", 8, -1), "89");
    EXPECT_EQ(get("k", 0, 100), "0123456789");
}

} // namespace
