#pragma once

#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"
#include "tests/support/CPathServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CScriptedServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

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

/// Where a scenario plays.
struct CStage {
    norla::CTransferPool& pool;
    const std::vector<kx::P<CWitness>>& witnesses;
    const std::function<bool()> hasFirst; ///< whether the first request has come to the server
};

/// What is done with a pool while something may fail once.
struct CScenario {
    std::string name;
    int atOnce = 0;
    std::vector<std::string> paths;
    std::function<void(const CStage&)> act;
};

void PrintTo(const CScenario& scenario, std::ostream* out);

/// Plays scenarios with pools of their own, on servers that are the same for all.
class CPoolTorture {
public:
    static const std::vector<CScenario>& scenarios();

    CPoolTorture();
    CPoolTorture(const CPoolTorture&) = delete;
    CPoolTorture& operator=(const CPoolTorture&) = delete;
    ~CPoolTorture();

    /// Libcurl may keep a request for ever, which cannot be performed by itself then.
    void requestsMayBeLost() noexcept { m_mayBeLost = true; }

    /// The scenario once: nothing hangs, each end is told once, pool and requests are good for more afterwards.
    /// @param arm lets something fail from now on
    /// @param disarm no longer
    void play(const CScenario& scenario, const std::function<void()>& arm, const std::function<void()>& disarm);

private:
    using Witness = kx::P<CWitness>;

    std::string urlOf(const std::string& path);
    Witness newWitness(const std::string& path);
    void prepare(CWitness& witness, const std::string& path);
    Witness useOnceMore(norla::CTransferPool& pool);
    void performOnceMore(CWitness& witness) const;
    size_t requestCount() const;

    support::CRefusedPort m_refused;
    support::CPathServer m_other;
    support::CPathServer m_server;
    std::unique_ptr<support::CScriptedServer> m_scripted; // of other protocols
    support::CScriptedServer m_data;                      // of FTP
    bool m_mayBeLost = false;
};
