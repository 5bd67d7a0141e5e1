#include "kx/files/CResourceManager.h"

#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using Path = kx::CResourceManager::Path;

class CResourceManagerTest : public testing::Test {
protected:
    std::filesystem::path make(const std::string& name)
    {
        const std::filesystem::path file = m_folder.path() / name;
        std::filesystem::create_directories(file.parent_path());
        return m_folder.write(name, "content");
    }

    std::string find(const char* name) const { return m_resources.findResource(name).toString().toUTF8(); }

    support::CTemporaryFolder m_folder;
    kx::CResourceManager m_resources{Path(kx::String::fromUTF8((m_folder.path() / "bin/program").string()))};
};

TEST_F(CResourceManagerTest, findsNothingWhereNothingIs)
{
    EXPECT_EQ(find("norla/a.txt"), "");
}

TEST_F(CResourceManagerTest, findsResourcesBesideTheProgram)
{
    const auto file = make("bin/resources/norla/a.txt");
    EXPECT_EQ(find("norla/a.txt"), file.string());
}

TEST_F(CResourceManagerTest, findsSharedResourcesOfTheProgram)
{
    const auto file = make("share/program/norla/a.txt");
    EXPECT_EQ(find("norla/a.txt"), file.string());
}

TEST_F(CResourceManagerTest, findsAddedFoldersFirstInTheirOrder)
{
    make("share/program/a.txt");
    const auto beside = make("bin/resources/a.txt");
    EXPECT_EQ(find("a.txt"), beside.string());
    const auto second = make("two/a.txt");
    m_resources.addResourceFolder(kx::String::fromUTF8((m_folder.path() / "one").string()));
    m_resources.addResourceFolder(kx::String::fromUTF8((m_folder.path() / "two").string()));
    EXPECT_EQ(find("a.txt"), second.string());
    const auto first = make("one/a.txt");
    EXPECT_EQ(find("a.txt"), first.string());
}

TEST_F(CResourceManagerTest, doesNotTakeAFolderForAFile)
{
    make("bin/resources/a.txt/inner");
    EXPECT_EQ(find("a.txt"), "");
}

TEST_F(CResourceManagerTest, hasOneInstanceForTheProcess)
{
    EXPECT_EQ(kx::CResourceManager::get().get(), kx::CResourceManager::get().get());
    EXPECT_TRUE(kx::CResourceManager::globalInstanceGuard());
}

TEST_F(CResourceManagerTest, looksBesideTheRunningProgram)
{
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    const auto folder = program.parent_path() / "resources";
    const auto file = folder / (program.filename().string() + ".resource-test");
    std::filesystem::create_directories(folder);
    std::filesystem::copy_file("/proc/self/comm", file, std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(
        kx::CResourceManager::get()->findResource(kx::String::fromUTF8(file.filename().string())).toString().toUTF8(),
        file.string());
    std::filesystem::remove(file);
}

} // namespace
