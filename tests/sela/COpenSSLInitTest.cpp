#include "sela/COpenSSLInit.h"

#include <gtest/gtest.h>

namespace {

TEST(COpenSSLInitTest, hasOneInstanceOfEachPart)
{
    EXPECT_EQ(sela::COpenSSLInit::CThreadStuff::get().get(), sela::COpenSSLInit::CThreadStuff::get().get());
    EXPECT_EQ(sela::COpenSSLInit::CCleaner::get().get(), sela::COpenSSLInit::CCleaner::get().get());
    EXPECT_TRUE(sela::COpenSSLInit::CThreadStuff::globalInstanceGuard());
    EXPECT_TRUE(sela::COpenSSLInit::CCleaner::globalInstanceGuard());
}

} // namespace
