#include "kx/files/CResourceManager.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

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

    std::string find(const Path& name) const { return m_resources.findResource(name).toBytes(); }

    support::CTemporaryFolder m_folder;
    kx::CResourceManager m_resources{Path::fromBytes((m_folder.path() / "bin/program").native())};
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
    m_resources.addResourceFolder(Path::fromBytes((m_folder.path() / "one").native()));
    m_resources.addResourceFolder(Path::fromBytes((m_folder.path() / "two").native()));
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
        kx::CResourceManager::get()->findResource(Path::fromBytes(file.filename().native())).toBytes(), file.native());
    std::filesystem::remove(file);
}

struct CProgramRow {
    const char* name;
    const char* folder;
    const char* program;
    std::vector<std::string> arguments;
};

/// A program of its own, whose process looks for its resource "a.txt".
class CResourceProgramTest : public testing::TestWithParam<CProgramRow> {
protected:
    std::string find() const
    {
        const auto program = m_folder.write(programPath(), "");
        std::filesystem::copy_file(NORLA_RESOURCE_PROGRAM, program, std::filesystem::copy_options::overwrite_existing);
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        std::vector<std::string> command = GetParam().arguments;
        command.insert(command.begin(), program.native());
        const support::CProcessRun run(command);
        return run.output() + run.errors();
    }

    static std::filesystem::path programPath() { return std::filesystem::path(GetParam().folder) / GetParam().program; }

    const support::CTemporaryFolder m_folder;
};

TEST_P(CResourceProgramTest, findsWhatIsBesideIt)
{
    const auto file = m_folder.write(programPath().parent_path() / "resources/a.txt", "");
    EXPECT_EQ(find(), file.native());
}

TEST_P(CResourceProgramTest, findsWhatIsSharedUnderItsName)
{
    const auto file = m_folder.write(std::filesystem::path("share") / GetParam().program / "a.txt", "");
    EXPECT_EQ(find(), file.native());
}

INSTANTIATE_TEST_SUITE_P(All, CResourceProgramTest,
    testing::ValuesIn(std::vector<CProgramRow>{
        {"asItWasStarted", "bin", "program", {}},
        {"underAPathThatIsNotUTF8", "b\xFCn", "pr\xF6gram", {}},
        {"whenItsFileIsGone", "bin", "program", {"--removed"}},
        {"whenItsFileWasReplaced", "bin", "program", {"--replaced"}},
        {"whenItsNameEndsLikeTheKernelsMark", "bin", "program (deleted)", {}},
        {"whenItsFileWithSuchANameIsGone", "bin", "program (deleted)", {"--removed"}},
    }),
    [](const testing::TestParamInfo<CProgramRow>& row) { return row.param.name; });

} // namespace
