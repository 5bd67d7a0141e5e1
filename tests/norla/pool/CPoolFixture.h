#pragma once

#include "norla/pool/CTransferPool.h"
#include "tests/norla/async/CAsyncFixture.h"

#include <atomic>

/// A pool, and a server that answers its requests as the test wrote.
class CPoolFixture : public CAsyncFixture {
protected:
    using Pool = kx::P<norla::CTransferPool>;
    using Transfer = kx::P<norla::CTransfer>;

    norla::CTransferPool& pool() { return *m_pool; }
    void replacePool(const norla::CTransferPool::Options& options)
    {
        m_pool = kx::newObj<norla::CTransferPool>(options);
    }
    void destroyPool() { m_pool = nullptr; }

    /// A transfer whose request the server has, and which it leaves without an answer.
    Transfer startStalled(const norla::CTransfer::Options& options = {})
    {
        const size_t connection = server().connectionCount();
        auto transfer = m_pool->start(stalledRequest().get(), options);
        EXPECT_TRUE(waitUntil([this, connection] { return !server().received(connection).empty(); }));
        return transfer;
    }

    static std::string failureOf(const Transfer& transfer)
    {
        const kx::P<kx::CError> error = transfer->getError();
        return error ? error->getMessage().toUTF8() : "";
    }

    /// Options with which each end counts.
    norla::CTransfer::Options countingEnds()
    {
        norla::CTransfer::Options options;
        options.onDone = [this](norla::CTransfer&) { ++m_ends; };
        return options;
    }

    static constexpr int longest = 20'000; // milliseconds

    std::atomic<int> m_ends{0};

private:
    Pool m_pool = kx::newObj<norla::CTransferPool>();
};
