#include "norla/pool/CTransferThread.h"

#include "norla/pool/CTransferSchedule.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

using norla::CTransferThread;

/// Asks from a thread that is made for that.
bool isCurrentOnAnother(const CTransferThread& thread)
{
    bool isCurrent = false;
    std::thread([&] { isCurrent = thread.isCurrent(); }).join();
    return isCurrent;
}

TEST(CTransferThreadTest, isNotTakenForAnotherThatTheSystemGivesItsNumberLater)
{
    CTransferThread thread(std::make_shared<norla::CTransferSchedule>(1, 1), 1);
    EXPECT_FALSE(isCurrentOnAnother(thread));
    thread.askToStop();
    thread.join();
    EXPECT_FALSE(isCurrentOnAnother(thread));
}

} // namespace
