#include "norla/core/CHeldCookies.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using norla::CHeldCookies;

bool isFree(std::recursive_mutex& lock)
{
    bool wasFree = false;
    std::thread([&] {
        wasFree = lock.try_lock();
        if (wasFree)
            lock.unlock();
    }).join();
    return wasFree;
}

class CHeldCookiesTest : public testing::Test {
protected:
    ~CHeldCookiesTest() override { CHeldCookies::release(); }

    std::recursive_mutex m_lock;
};

TEST_F(CHeldCookiesTest, areNeededWhereLibcurlReadsWithoutTheLock)
{
    EXPECT_FALSE(CHeldCookies::areNeeded(0x075801));
    EXPECT_FALSE(CHeldCookies::areNeeded(0x080a01));
    EXPECT_TRUE(CHeldCookies::areNeeded(0x080b00));
    EXPECT_TRUE(CHeldCookies::areNeeded(0x080e01));
    EXPECT_TRUE(CHeldCookies::areNeeded(0x080f00));
    EXPECT_FALSE(CHeldCookies::areNeeded(0x081000));
}

TEST_F(CHeldCookiesTest, keepOtherThreadsOut)
{
    CHeldCookies::hold(m_lock);
    EXPECT_FALSE(isFree(m_lock));
}

TEST_F(CHeldCookiesTest, areReleasedOnce)
{
    CHeldCookies::hold(m_lock);
    CHeldCookies::release();
    CHeldCookies::release();
    EXPECT_TRUE(isFree(m_lock));
}

TEST_F(CHeldCookiesTest, areReleasedWhenAnotherRequestOfTheThreadBegins)
{
    std::recursive_mutex other;
    CHeldCookies::hold(m_lock);
    CHeldCookies::hold(other);
    EXPECT_TRUE(isFree(m_lock));
    EXPECT_FALSE(isFree(other));
    CHeldCookies::release();
}

TEST_F(CHeldCookiesTest, areHeldOnceByTwoRequestsOfTheThread)
{
    CHeldCookies::hold(m_lock);
    CHeldCookies::hold(m_lock);
    CHeldCookies::release();
    EXPECT_TRUE(isFree(m_lock));
}

} // namespace
