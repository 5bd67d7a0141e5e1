#include "norla/pool/CEventDescriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <poll.h>

namespace {

bool isReadable(const norla::CEventDescriptor& event)
{
    pollfd descriptor{.fd = event.get(), .events = POLLIN, .revents = 0};
    return poll(&descriptor, 1, 0) == 1;
}

TEST(CEventDescriptorTest, isReadableFromASignalUntilItIsCleared)
{
    norla::CEventDescriptor event;
    EXPECT_FALSE(isReadable(event));
    event.signal();
    event.signal();
    EXPECT_TRUE(isReadable(event));
    event.clear();
    EXPECT_FALSE(isReadable(event));
}

TEST(CEventDescriptorTest, worksWhateverErrorWasBefore)
{
    norla::CEventDescriptor event;
    errno = EINTR; // as after a wait that a signal has interrupted
    event.signal();
    EXPECT_TRUE(isReadable(event));
    errno = EINTR;
    event.clear();
    EXPECT_FALSE(isReadable(event));
}

} // namespace
