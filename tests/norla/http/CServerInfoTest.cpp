#include "norla/http/CServerInfo.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct CServerRow {
    const char* name;
    kx::String header;
    bool rangesBroken;
};

class CServerRowTest : public testing::TestWithParam<CServerRow> {};

TEST_P(CServerRowTest, decidesOverRanges)
{
    norla::CServerInfo info;
    info.updateFromHeaders({{"server", GetParam().header}});
    EXPECT_EQ(info.areGetRangesBroken(), GetParam().rangesBroken);
    EXPECT_EQ(info.getServerHeader(), GetParam().header);
    EXPECT_FALSE(info.isGetBroken());
    EXPECT_FALSE(info.isPutBroken());
}

INSTANTIATE_TEST_SUITE_P(All, CServerRowTest,
    testing::ValuesIn(std::vector<CServerRow>{
        {"both", "DAV/2 Python/3.9", true},
        {"bothInAnyOrder", "Python/3.9 x DAV/2", true},
        {"davWithoutVersion", "DAV Python/3.9", false},
        {"pythonAlone", "Python/3.9", false},
        {"davAlone", "DAV/2", false},
        {"lowerCase", "dav/2 python/3.9", false},
        {"another", "nginx/1.22.1", false},
    }),
    [](const testing::TestParamInfo<CServerRow>& row) { return row.param.name; });

TEST(CServerInfoTest, knowsNothingAtFirst)
{
    const norla::CServerInfo info;
    EXPECT_EQ(info.getServerHeader(), "");
    EXPECT_FALSE(info.isGetBroken());
    EXPECT_FALSE(info.isPutBroken());
    EXPECT_FALSE(info.areGetRangesBroken());
}

TEST(CServerInfoTest, learnsNothingWithoutAServerHeader)
{
    norla::CServerInfo info;
    info.updateFromHeaders({{"date", "now"}});
    EXPECT_EQ(info.getServerHeader(), "");
}

TEST(CServerInfoTest, keepsTheFirstServerHeader)
{
    norla::CServerInfo info;
    info.updateFromHeaders({{"server", "nginx"}});
    info.updateFromHeaders({{"server", "DAV/2 Python/3.9"}});
    EXPECT_EQ(info.getServerHeader(), "nginx");
    EXPECT_FALSE(info.areGetRangesBroken());
}

TEST(CServerInfoTest, remembersThatRangesAreBroken)
{
    norla::CServerInfo info;
    info.updateFromHeaders({{"server", "DAV/2 Python/3.9"}});
    info.updateFromHeaders({{"server", "nginx"}});
    EXPECT_TRUE(info.areGetRangesBroken());
}

TEST(CServerInfoTest, isUpdatedAndReadByManyThreads)
{
    norla::CServerInfo info;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&info] {
            for (int round = 0; round < 100; ++round) {
                info.updateFromHeaders({{"server", "DAV/2 Python/3.9"}});
                EXPECT_EQ(info.getServerHeader(), "DAV/2 Python/3.9");
                EXPECT_TRUE(info.areGetRangesBroken());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
