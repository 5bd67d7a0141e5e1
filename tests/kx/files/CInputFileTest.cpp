#include "kx/files/CInputFile.h"

#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CWithoutStandardInput.h"
#include "tests/support/errorOf.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using kx::CInputFile;

class CInputFileTest : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return m_folder.path() / name; }

    kx::P<CInputFile> open(const std::string& name) const
    {
        return kx::newObj<CInputFile>(CInputFile::Path::fromBytes(path(name).native()));
    }

    kx::P<CInputFile> openDigits() const
    {
        m_folder.write("digits", "0123456789");
        return open("digits");
    }

    kx::String openError(const std::string& name) const
    {
        return support::messageOf([&] { open(name); });
    }

    kx::String cannotBeRead(const std::string& name, const kx::String& reason) const
    {
        return "The file '" + kx::String::fromUTF8(path(name).native()) + "' cannot be read: " + reason + ".";
    }

    static std::string read(CInputFile& file, int size = 100)
    {
        std::array<unsigned char, 100> buffer{};
        const int count = file.read(buffer.data(), size);
        return {reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(count)};
    }

    static std::string readAll(CInputFile& file)
    {
        std::string all;
        for (std::string block = read(file); !block.empty(); block = read(file))
            all += block;
        return all;
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(CInputFileTest, givesWhatTheFileHolds)
{
    const auto file = openDigits();
    EXPECT_EQ(file->getLength(), 10);
    EXPECT_EQ(read(*file, 4), "0123");
    EXPECT_EQ(file->getPosition(), 4);
    EXPECT_EQ(readAll(*file), "456789");
    EXPECT_EQ(read(*file), "");
}

TEST_F(CInputFileTest, readsNothingOfASizeBelowZero)
{
    EXPECT_EQ(openDigits()->read(nullptr, -1), 0);
}

TEST_F(CInputFileTest, goesOnWhereItWasSought)
{
    const auto file = openDigits();
    read(*file);
    file->seek(7);
    EXPECT_EQ(file->getPosition(), 7);
    EXPECT_EQ(read(*file), "789");
}

TEST_F(CInputFileTest, knowsNoPositionOutsideTheFile)
{
    const auto file = openDigits();
    const kx::String name = kx::String::fromUTF8(path("digits").native());
    EXPECT_EQ(support::messageOf([&] { file->seek(11); }), "There is no position 11 in the file '" + name + "'.");
    EXPECT_EQ(support::messageOf([&] { file->seek(-1); }), "There is no position -1 in the file '" + name + "'.");
    EXPECT_EQ(file->getPosition(), 0);
}

TEST_F(CInputFileTest, namesTheFileThatIsNotThere)
{
    EXPECT_EQ(openError("missing"), cannotBeRead("missing", "No such file or directory"));
}

TEST_F(CInputFileTest, refusesADirectory)
{
    fs::create_directory(path("folder"));
    EXPECT_EQ(openError("folder"), cannotBeRead("folder", "Is a directory"));
}

TEST_F(CInputFileTest, refusesANameWithAZeroCharacter)
{
    m_folder.write("name", "text");
    EXPECT_NE(
        support::messageOf([&] { open(std::string("name\0more", 9)); }).find("Invalid argument"), kx::String::npos);
}

TEST_F(CInputFileTest, isReadToItsEndAfterItWasRemoved)
{
    const auto file = openDigits();
    fs::remove(path("digits"));
    EXPECT_EQ(readAll(*file), "0123456789");
}

TEST_F(CInputFileTest, givesNothingThatWasAddedLater)
{
    const auto file = openDigits();
    std::ofstream(path("digits"), std::ios::app) << "more";
    EXPECT_EQ(readAll(*file), "0123456789");
}

TEST_F(CInputFileTest, doesNotTakeALostEndForTheEnd)
{
    const auto file = openDigits();
    EXPECT_EQ(read(*file, 3), "012");
    fs::resize_file(path("digits"), 5);
    EXPECT_EQ(read(*file), "34");
    EXPECT_EQ(
        support::messageOf([&] { read(*file); }), cannotBeRead("digits", "it has ended behind 5 of its 10 bytes"));
}

TEST_F(CInputFileTest, isUnchangedWhileNobodyWrites)
{
    const auto file = openDigits();
    readAll(*file);
    EXPECT_NO_THROW(file->requireUnchanged());
}

TEST_F(CInputFileTest, tellsThatItHasGrown)
{
    const auto file = openDigits();
    std::ofstream(path("digits"), std::ios::app) << "more";
    EXPECT_EQ(support::messageOf([&] { file->requireUnchanged(); }),
        cannotBeRead("digits", "it has 14 bytes now and had 10 when it was opened"));
}

TEST_F(CInputFileTest, tellsThatItWasWrittenTo)
{
    const auto file = openDigits();
    fs::last_write_time(path("digits"), fs::last_write_time(path("digits")) + std::chrono::hours(1));
    EXPECT_EQ(support::messageOf([&] { file->requireUnchanged(); }),
        cannotBeRead("digits", "it was written to while it was read"));
}

TEST_F(CInputFileTest, givesWhatComesThroughAPipeOnce)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    std::thread writer([this] { std::ofstream(path("pipe")) << "through"; });
    const auto file = open("pipe");
    EXPECT_EQ(file->getLength(), -1);
    EXPECT_EQ(readAll(*file), "through");
    writer.join();
    EXPECT_NO_THROW(file->requireUnchanged());
    EXPECT_EQ(support::messageOf([&] { file->seek(0); }), cannotBeRead("pipe", "Illegal seek"));
}

TEST_F(CInputFileTest, knowsNoLengthOfAFileThatIsMadeUp)
{
    const auto file = kx::newObj<CInputFile>("/proc/self/status");
    EXPECT_EQ(file->getLength(), -1);
    EXPECT_EQ(read(*file, 5), "Name:");
}

TEST_F(CInputFileTest, knowsThatAnEmptyFileIsEmpty)
{
    m_folder.write("empty", "");
    EXPECT_EQ(open("empty")->getLength(), 0);
}

TEST_F(CInputFileTest, isReadInAProgramWithoutStandardInput)
{
    m_folder.write("digits", "0123456789");
    const support::CWithoutStandardInput closed;
    EXPECT_EQ(readAll(*open("digits")), "0123456789");
}

TEST_F(CInputFileTest, isClosedInAProgramWithoutStandardInput)
{
    m_folder.write("digits", "0123456789");
    const support::CWithoutStandardInput closed;
    open("digits");
    EXPECT_TRUE(closed.isFree());
}

} // namespace
