#pragma once

#include "norla/core/CNetRequest.h"
#include "norla/pool/CTransferPool.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <utility>
#include <vector>

namespace bench {

using Requests = std::vector<kx::P<norla::CNetRequest>>;

/// One request for each URL.
inline Requests requestsTo(const std::vector<std::string>& urls)
{
    Requests requests;
    for (const std::string& url : urls) {
        requests.push_back(kx::newObj<norla::CNetRequest>());
        requests.back()->setURL(kx::String::fromUTF8(url));
    }
    return requests;
}

inline Requests requestsTo(const std::string& url, int count)
{
    return requestsTo(std::vector<std::string>(static_cast<size_t>(count), url));
}

/// Many transfers in a pool, as many of them at once as there are requests: each end starts the next one.
class CPoolRun {
public:
    explicit CPoolRun(Requests requests, int threads = 1)
        : m_requests(std::move(requests))
        , m_pool(kx::newObj<norla::CTransferPool>(
              norla::CTransferPool::Options{.threads = threads, .atOnce = atOnce(), .idleConnections = atOnce()}))
    {
        m_options.onDone = [this](norla::CTransfer& transfer) { onDone(transfer); };
    }

    void run(int transfers)
    {
        m_left = transfers - atOnce();
        m_running = atOnce();
        m_done = std::promise<void>();
        for (const auto& request : m_requests)
            m_pool->start(request.get(), m_options);
        m_done.get_future().wait();
    }

private:
    int atOnce() const { return static_cast<int>(m_requests.size()); }

    void onDone(norla::CTransfer& transfer)
    {
        if (const kx::P<kx::CError> error = transfer.getError()) {
            std::fprintf(stderr, "a pool's transfer: %s\n", error->what());
            std::_Exit(1);
        }
        if (m_left-- > 0)
            m_pool->start(&transfer.getRequest(), m_options);
        else if (--m_running == 0)
            m_done.set_value();
    }

    const Requests m_requests;
    norla::CTransfer::Options m_options;
    std::promise<void> m_done;
    std::atomic<int> m_left{0};
    std::atomic<int> m_running{0};
    const kx::P<norla::CTransferPool> m_pool; // goes first
};

} // namespace bench
