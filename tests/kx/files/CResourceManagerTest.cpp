#include "kx/files/CResourceManager.h"

#include "kx/base/CInvalidArgError.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

TEST_F(CResourceManagerTest, refusesAnAbsoluteName)
{
    const auto file = make("bin/resources/a.txt");
    EXPECT_EQ(support::messageOf([&] { find(Path::fromBytes(file.native())); }),
        "Invalid argument passed to 'CResourceManager::findResource': not a relative path: '"
            + Path::fromBytes(file.native()).toString() + "'.");
}

TEST_F(CResourceManagerTest, refusesANameWithAZeroCharacter)
{
    make("bin/resources/a.txt");
    const kx::String name(std::wstring(L"a.txt\0.crt", 10));
    EXPECT_EQ(support::messageOf([&] { find(name); }),
        "Invalid argument passed to 'CResourceManager::findResource': zero character in the path '" + name + "'.");
}

TEST_F(CResourceManagerTest, refusesAFolderThatTheWorkingDirectoryDecides)
{
    EXPECT_EQ(support::messageOf([this] { m_resources.addResourceFolder("resources"); }),
        "Invalid argument passed to 'CResourceManager::addResourceFolder': not an absolute path: 'resources'.");
    EXPECT_THROW(m_resources.addResourceFolder(Path()), kx::CInvalidArgError);
}

TEST_F(CResourceManagerTest, refusesAFolderWithAZeroCharacter)
{
    const kx::String name(std::wstring(L"/a\0b", 4));
    EXPECT_EQ(support::messageOf([&] { m_resources.addResourceFolder(name); }),
        "Invalid argument passed to 'CResourceManager::addResourceFolder': zero character in the path '" + name + "'.");
}

struct CUnknownProgramRow {
    const char* name;
    Path program;
    const char* file; // where a resource would be, from the working directory
};

class CUnknownProgramTest : public testing::TestWithParam<CUnknownProgramRow> {
protected:
    CUnknownProgramTest() { std::filesystem::current_path(makeFolder(m_folder.path() / "work")); }
    ~CUnknownProgramTest() override { std::filesystem::current_path(m_before); }

    static std::filesystem::path makeFolder(const std::filesystem::path& folder)
    {
        std::filesystem::create_directories(folder);
        return folder;
    }

    const std::filesystem::path m_before = std::filesystem::current_path();
    const support::CTemporaryFolder m_folder;
};

TEST_P(CUnknownProgramTest, hasNoResourcesOfTheWorkingDirectory)
{
    const std::filesystem::path file = std::filesystem::path(GetParam().file);
    makeFolder(file.parent_path());
    std::ofstream(file) << "content";
    EXPECT_EQ(kx::CResourceManager(GetParam().program).findResource("a.txt"), Path());
}

TEST_P(CUnknownProgramTest, hasTheResourcesOfTheFoldersThatWereAdded)
{
    std::ofstream("a.txt") << "content";
    const auto folder = std::filesystem::current_path();
    kx::CResourceManager resources(GetParam().program);
    resources.addResourceFolder(Path::fromBytes(folder.native()));
    EXPECT_EQ(resources.findResource("a.txt").toBytes(), (folder / "a.txt").native());
}

INSTANTIATE_TEST_SUITE_P(All, CUnknownProgramTest,
    testing::ValuesIn(std::vector<CUnknownProgramRow>{
        {"empty", "", "../resources/a.txt"},
        {"emptyAndShared", "", "../../share/a.txt"},
        {"relative", "bin/program", "bin/resources/a.txt"},
        {"inTheWorkingDirectory", "program", "resources/a.txt"},
    }),
    [](const testing::TestParamInfo<CUnknownProgramRow>& row) { return row.param.name; });

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
