// The sample of docs/guide.md that runs transfers in the background, against a real server.
#include "docs/guide/samples.h"
#include "tests/support/CNginxServer.h"

#include <gtest/gtest.h>

namespace {

TEST(GuideBackgroundTest, fetchesAllFiles)
{
    const support::CNginxServer server;
    const kx::String good = kx::String::fromUTF8(server.url("/digits.txt"));
    const kx::String bad = kx::String::fromUTF8(server.url("/status/404"));
    EXPECT_EQ(fetchAll({good, bad, good}), 2);
    EXPECT_EQ(server.accessLog().size(), 3u);
}

} // namespace
