#include "norla/s3/documentTime.h"

#include <gtest/gtest.h>

namespace {

TEST(documentTimeTest, readsATimeToTheSecond)
{
    constexpr long long microseconds = 1255369830LL * 1'000'000;
    EXPECT_EQ(norla::documentTime("2009-10-12T17:50:30Z"), kx::CTime(microseconds));
    EXPECT_EQ(norla::documentTime("2009-10-12T17:50:30.999Z"), kx::CTime(microseconds));
}

TEST(documentTimeTest, takesNothingElseForATime)
{
    for (const char* const text :
        {"", "Z", "2009-10-12T17:50:30", "2009-10-12T17:50:30x", "2009-10-12T17:50:30,0Z", "2009-10-12T17:50:30.0+Z",
            "2009-02-30T17:50:30Z", "2009-10-12 17:50:30Z", "x009-10-12T17:50:30Z", "2009-10-12T17:50:30ZZ"})
        EXPECT_FALSE(norla::documentTime(kx::String::fromLatin1(text)).isSet()) << text;
}

} // namespace
