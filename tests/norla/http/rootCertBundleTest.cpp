#include "kx/files/CResourceManager.h"
#include "norla/http/util.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

kx::String messageOfSearch()
{
    try {
        return "found " + norla::getRootCertBundlePath().toString();
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
        EXPECT_TRUE(error.getProps().getMap().empty());
        return error.getMessage();
    }
}

constexpr char notFound[] = "INTERNAL ERROR: Root certificate bundle not found in application resources.";

/// Has a resource folder of its own, which is empty at the beginning and of no use any more after the test.
class RootCertBundleTest : public testing::Test {
protected:
    RootCertBundleTest()
    {
        kx::CResourceManager::get()->addResourceFolder(kx::CResourceManager::Path::fromBytes(m_folder.path().native()));
    }

    support::CTemporaryFolder m_folder;
};

TEST_F(RootCertBundleTest, isMissedEveryTime)
{
    EXPECT_EQ(messageOfSearch(), notFound);
    EXPECT_EQ(messageOfSearch(), notFound);
}

TEST_F(RootCertBundleTest, isFoundInItsFolderOfTheResources)
{
    const auto file = m_folder.write("norla/ca-bundle.crt", "");
    EXPECT_EQ(norla::getRootCertBundlePath().toString().toUTF8(), file.string());
}

TEST_F(RootCertBundleTest, isNotFoundUnderAnotherName)
{
    m_folder.write("ca-bundle.crt", "");
    m_folder.write("norla/ca-bundle.pem", "");
    EXPECT_EQ(messageOfSearch(), notFound);
}

TEST_F(RootCertBundleTest, isLookedForAnewEachTime)
{
    const auto file = m_folder.write("norla/ca-bundle.crt", "");
    EXPECT_EQ(messageOfSearch().toUTF8(), "found " + file.string());
    std::filesystem::remove(file);
    EXPECT_EQ(messageOfSearch(), notFound);
    m_folder.write("norla/ca-bundle.crt", "");
    EXPECT_EQ(messageOfSearch().toUTF8(), "found " + file.string());
}

TEST_F(RootCertBundleTest, isNotLookedForInTheWorkingFolder)
{
    const support::CTemporaryFolder working;
    working.write("norla/ca-bundle.crt", "");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(working.path());
    EXPECT_EQ(messageOfSearch(), notFound);
    std::filesystem::current_path(before);
}

TEST(RootCertBundleDeathTest, cannotBeFoundOnceTheResourcesAreGone)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        std::atexit([] { std::fprintf(stderr, "%s\n", messageOfSearch().toUTF8().c_str()); });
        kx::CResourceManager::get();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "Construction of static object has failed\\.");
}

} // namespace
