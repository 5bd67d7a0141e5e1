#pragma once

#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"

#include <atomic>
#include <string>

/// One start of a request, and who has been told its end how often.
class CWitness : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    explicit CWitness(const std::string& url);

    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override;

    /// @return whether the pool has taken it
    bool start(norla::CTransferPool& pool);

    void wait() const;
    bool isOver() const { return !transfer || transfer->isDone(); }

    /// Once the pool is gone: each end was told once.
    void check();

    const kx::P<norla::CNetRequest> request = kx::newObj<norla::CNetRequest>();
    const kx::P<norla::CExecutorQueue> queue = kx::newObj<norla::CExecutorQueue>();
    const kx::P<norla::CNetStringList> recipients = kx::newObj<norla::CNetStringList>(); // of a mail
    norla::CNetRequest::Buffer body;
    norla::CTransfer::Options options;
    kx::P<norla::CTransfer> transfer;
    std::atomic<int> ends{0};
    std::atomic<int> requestEnds{0};
    std::atomic<bool> hasSucceeded{false};
    bool isWithdrawn = false;

private:
    bool isResultGood() const;
};
