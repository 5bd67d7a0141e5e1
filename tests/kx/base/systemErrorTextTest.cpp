#include "kx/base/systemErrorText.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(systemErrorTextTest, saysWhatTheNumberMeans)
{
    EXPECT_EQ(kx::systemErrorText(ENOSPC), "No space left on device");
}

TEST(systemErrorTextTest, namesANumberThatTheSystemDoesNotKnow)
{
    EXPECT_EQ(kx::systemErrorText(99999), "Unknown error 99999");
    EXPECT_EQ(kx::systemErrorText(-1), "Unknown error -1");
}

} // namespace
