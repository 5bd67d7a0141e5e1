#pragma once

#include "tests/norla/pool/CWitness.h"
#include "tests/support/CPathServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CScriptedServer.h"

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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
    int threads = 1;
    bool isInSecondLane = false; ///< as many transfers as one lane has go already
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
    std::string urlElsewhere(const std::string& path);
    void fillLane(norla::CTransferPool& pool);
    void emptyLane();
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
    support::CPathServer m_elsewhere;
    std::optional<size_t> m_elsewhereIndex;           // of a port that another thread serves than m_server
    std::vector<kx::P<norla::CNetRequest>> m_fillers; // of a lane
    std::vector<kx::P<norla::CTransfer>> m_filling;
    bool m_mayBeLost = false;
};
