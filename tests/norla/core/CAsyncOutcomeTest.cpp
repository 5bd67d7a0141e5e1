#include "norla/core/CAsyncOutcome.h"

#include <gtest/gtest.h>

namespace {

using norla::CAsyncOutcome;

TEST(CAsyncOutcomeTest, isNotThereAtFirst)
{
    const CAsyncOutcome outcome;
    EXPECT_FALSE(outcome.getDoneSignal()->isSet());
    EXPECT_EQ(outcome.getResult(), CURLE_OK);
}

TEST(CAsyncOutcomeTest, isToldAtTheEndOfItsRecording)
{
    CAsyncOutcome outcome;
    {
        const CAsyncOutcome::CSetAtEnd setAtEnd(outcome);
        outcome.set(CURLE_COULDNT_CONNECT, "words");
        EXPECT_FALSE(outcome.getDoneSignal()->isSet());
    }
    EXPECT_TRUE(outcome.getDoneSignal()->isSet());
    EXPECT_EQ(outcome.getResult(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(outcome.getMessage(), "words");
}

TEST(CAsyncOutcomeTest, isUnknownAgainWhenAnotherTransferBegins)
{
    CAsyncOutcome outcome;
    outcome.set(CURLE_COULDNT_CONNECT, "words");
    outcome.getDoneSignal()->set();
    outcome.begin(CURLE_OK);
    EXPECT_FALSE(outcome.getDoneSignal()->isSet());
    EXPECT_EQ(outcome.getResult(), CURLE_OK);
    EXPECT_EQ(outcome.getMessage(), "");
}

} // namespace
