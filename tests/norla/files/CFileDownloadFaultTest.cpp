// Servers, disks and callers that do what nobody expects of them.
#include "norla/core/CAcceptEncoding.h"
#include "norla/core/CNetHeaders.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <gmock/gmock.h>

#include <future>
#include <regex>
#include <string>
#include <utility>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CFileDownloadFaultTest : public CFileDownloadFixture {
protected:
    /// Leaves all bytes as a part: at the last moment somebody else has the name.
    void leaveWholePart()
    {
        answer(whole(m_bytes));
        options().onProgress = [this](const norla::CFileProgress& progress) {
            if (progress.done == progress.total)
                folder().write("file", "somebody's");
        };
        EXPECT_TRUE(failure());
        options().onProgress = {};
        fs::remove(folder().path() / "file");
        ASSERT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
    }

    const std::string m_bytes = bytesOf(200'000);
};

TEST_F(CFileDownloadFaultTest, withoutAProofNoAttemptCountsAsTheFirstOneAgain)
{
    options().retries.attempts = 2;
    for (int i = 0; i < 5; ++i)
        answer(whole(m_bytes, 100'000, ""));
    EXPECT_TRUE(failure());
    EXPECT_EQ(server().connectionCount(), 2u);
}

TEST_F(CFileDownloadFaultTest, whatTheLastCallOfItsListenerThrowsLeavesThePart)
{
    answer(whole(m_bytes));
    options().onProgress = [](const norla::CFileProgress& progress) {
        if (progress.done == progress.total)
            throw kx::CError("of the listener");
    };
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "of the listener");
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

} // namespace
