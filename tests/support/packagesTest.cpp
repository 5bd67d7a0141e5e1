#include "tests/support/packages.h"

#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

using support::packageFile;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

class PackagesTest : public testing::Test {
protected:
    PackagesTest() { setenv("XDG_CACHE_HOME", m_cache.path().c_str(), 1); }

    ~PackagesTest() override
    {
        if (m_before)
            setenv("XDG_CACHE_HOME", m_before->c_str(), 1);
        else
            unsetenv("XDG_CACHE_HOME");
    }

    support::CTemporaryFolder m_cache;

private:
    static std::optional<std::string> currentCache()
    {
        const char* const value = std::getenv("XDG_CACHE_HOME");
        return value ? std::optional<std::string>(value) : std::nullopt;
    }

    std::optional<std::string> m_before = currentCache();
};

TEST_F(PackagesTest, prefersAnUnpackedPackage)
{
    const auto unpacked = m_cache.write("norla-test-packages/curl/usr/bin/curl", "");
    EXPECT_EQ(packageFile("curl", "usr/bin/curl"), unpacked);
}

TEST_F(PackagesTest, findsAnInstalledPackage)
{
    EXPECT_EQ(packageFile("curl", "usr/bin/curl"), "/usr/bin/curl");
}

TEST_F(PackagesTest, namesTheMissingPackage)
{
    EXPECT_THAT([] { packageFile("missing-server", "usr/sbin/missing"); },
        ThrowsMessage<std::runtime_error>(HasSubstr("Debian package missing-server")));
}

} // namespace
