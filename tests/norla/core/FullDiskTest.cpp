// What becomes of a download when the disk is full. A program of its own, whose write() is not the system's.
#include "norla/core/CFileSink.h"
#include "norla/core/errorKind.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<bool> isDiskFull{false};

bool isFile(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

extern "C" ssize_t write(int descriptor, const void* data, size_t size)
{
    static const auto original = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    if (!original)
        std::abort();
    if (!isDiskFull || !isFile(descriptor))
        return original(descriptor, data, size);
    errno = ENOSPC;
    return -1;
}

namespace {

class FullDiskTest : public CRequestFixture {
protected:
    ~FullDiskTest() override { isDiskFull = false; }

    kx::P<kx::CError> failureOfDownload()
    {
        answer(ok("body"));
        const auto path = norla::CNetRequest::Path::fromBytes((m_folder.path() / "file").native());
        const auto sink = kx::newObj<norla::CFileSink>(request(), path);
        request().setReceiveDataSink(sink.get());
        isDiskFull = true;
        return failureOf();
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(FullDiskTest, isToldWithThePathOfTheFile)
{
    const auto error = failureOfDownload();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "The file '" + kx::String::fromUTF8((m_folder.path() / "file").native())
            + "' cannot be written: No space left on device.");
}

TEST_F(FullDiskTest, isAKindOfItsOwn)
{
    const auto error = failureOfDownload();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Full);
}

TEST_F(FullDiskTest, leavesNoPartBehind)
{
    EXPECT_TRUE(failureOfDownload());
    request().reset();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
}

} // namespace
