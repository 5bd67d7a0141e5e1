#include "tests/norla/pool/CWitness.h"

#include "tests/norla/pool/CFailingCall.h"

#include <gtest/gtest.h>

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using norla::TransferState;

CWitness::CWitness(const std::string& url)
{
    request->setURL(kx::String::fromUTF8(url));
    options.onDone = [this](CTransfer&) { ++ends; };
}

void CWitness::onNetRequestDone(CNetRequest* /*request*/, const kx::CError* error)
{
    ++requestEnds;
    hasSucceeded = !error;
}

bool CWitness::start(CTransferPool& pool)
{
    request->setDoneListener(this);
    try {
        CFailingCall::inLibrary([&] { transfer = pool.start(request.get(), options); });
    } catch (const std::exception&) {
        EXPECT_FALSE(request->isManaged());
    }
    return static_cast<bool>(transfer);
}

void CWitness::wait() const
{
    constexpr int patience = 20'000; // milliseconds
    EXPECT_TRUE(!transfer || transfer->wait(patience)) << "no end";
}

void CWitness::check()
{
    request->setDoneListener(nullptr); // the end of the circle
    options = {};
    EXPECT_FALSE(request->isManaged());
    queue->runPending();
    EXPECT_EQ(ends, transfer ? 1 : 0);
    EXPECT_EQ(requestEnds, transfer && !isWithdrawn ? 1 : 0);
    if (!transfer)
        return;
    const bool isSuccess = transfer->getState() == TransferState::Succeeded;
    EXPECT_EQ(transfer->getError() == nullptr, isSuccess);
    EXPECT_EQ(hasSucceeded, isSuccess);
    if (isWithdrawn)
        return; // of which the request says nothing
    EXPECT_TRUE(request->isAsyncDone());
    EXPECT_EQ(isResultGood(), isSuccess);
}

bool CWitness::isResultGood() const
{
    try {
        request->checkAsyncResult();
    } catch (const std::exception&) {
        return false;
    }
    return true;
}
