#include "norla/core/CFirstError.h"

#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using norla::CFirstError;

TEST(CFirstErrorTest, isNotThereAtFirst)
{
    const CFirstError first;
    EXPECT_FALSE(first.isThere());
    EXPECT_NO_THROW(first.throwIt());
}

TEST(CFirstErrorTest, isKeptOfSeveral)
{
    CFirstError first;
    first.keep(kx::CError("first"));
    first.keep(kx::CError("second"));
    EXPECT_TRUE(first.isThere());
    EXPECT_EQ(support::messageOf([&] { first.throwIt(); }), "first");
}

TEST(CFirstErrorTest, isThrownAsOftenAsItIsAskedFor)
{
    CFirstError first;
    first.keep(kx::CError("first"));
    EXPECT_THROW(first.throwIt(), kx::CError);
    EXPECT_EQ(support::messageOf([&] { first.throwIt(); }), "first");
}

TEST(CFirstErrorTest, mayBeOfTheStandardLibrary)
{
    CFirstError first;
    first.keep(std::runtime_error("standard"));
    EXPECT_EQ(support::messageOf([&] { first.throwIt(); }), "standard");
}

TEST(CFirstErrorTest, isTakenFromAnAction)
{
    CFirstError first;
    EXPECT_TRUE(first.keepFrom([] {}));
    EXPECT_FALSE(first.isThere());
    EXPECT_FALSE(first.keepFrom([] { throw kx::CError("of the action"); }));
    EXPECT_EQ(support::messageOf([&] { first.throwIt(); }), "of the action");
}

TEST(CFirstErrorTest, isForgotten)
{
    CFirstError first;
    first.keep(kx::CError("first"));
    first.forget();
    EXPECT_FALSE(first.isThere());
    first.keep(kx::CError("another"));
    EXPECT_EQ(support::messageOf([&] { first.throwIt(); }), "another");
}

} // namespace
