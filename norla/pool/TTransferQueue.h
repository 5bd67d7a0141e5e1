#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace norla {

/// What waits for its start, and in which order it goes: the highest priority first, within one priority whoever has
/// come first, and passing over those whose host has as many running as it may. Those of one host run in lanes of which
/// each has its width of them at most; hosts have the lanes in common. Every step takes a time that grows with the
/// logarithm of their number. Knows nothing of threads.
template <typename TItem>
class TTransferQueue {
    struct CHost;

    /// Smaller goes first.
    using COrder = std::pair<std::int64_t, std::uint64_t>;

public:
    /// A place in the queue. Belongs to one push() and stays valid until remove() or finish().
    struct CPlace {
        CHost* host = nullptr;
        COrder order = {};
        size_t lane = 0; // while it runs, as takeNext() has said
    };

    /// @param atOnce how many run at once
    /// @param perHost how many of one host; 0: no limit of its own
    /// @param laneWidth how many of one host in one lane, 1 at least
    TTransferQueue(int atOnce, int perHost, int laneWidth)
        : m_atOnce(atOnce)
        , m_perHost(perHost)
        , m_laneWidth(laneWidth)
    {
    }

    /// @param host any text that tells hosts apart
    CPlace push(TItem item, const std::string& host, int priority)
    {
        CHost& its = getHost(host);
        const CPlace place{&its, {-static_cast<std::int64_t>(priority), m_count}};
        try {
            its.reserveLanes(m_atOnce, m_laneWidth);
            its.waiting.emplace(place.order, std::move(item));
        } catch (...) {
            forgetIfUnused(its);
            throw;
        }
        ++m_count;
        refresh(its);
        return place;
    }

    /// Takes out the one that goes next, which counts as running from now on.
    /// @param lane the first one of its host's that has room
    /// @return whether there is one that may
    bool takeNext(TItem& item, size_t& lane)
    {
        if (m_running >= m_atOnce || m_ready.empty())
            return false;
        CHost& host = *m_ready.begin()->second;
        const auto first = host.waiting.begin();
        item = std::move(first->second);
        host.waiting.erase(first);
        ++host.running;
        lane = host.enterLane(m_laneWidth);
        ++m_running;
        refresh(host);
        return true;
    }

    /// One that waits goes. @return false when it does not wait
    bool remove(const CPlace& place)
    {
        CHost& host = *place.host;
        if (host.waiting.erase(place.order) == 0)
            return false;
        refresh(host);
        forgetIfUnused(host);
        return true;
    }

    /// One that ran has ended: its room is free.
    void finish(const CPlace& place)
    {
        CHost& host = *place.host;
        --host.running;
        host.leaveLane(place.lane);
        --m_running;
        refresh(host);
        forgetIfUnused(host);
    }

    int getRunning() const noexcept { return m_running; }

private:
    using CReady = std::map<COrder, CHost*>;

    struct CHost {
        const std::string* name = nullptr;
        std::map<COrder, TItem> waiting;
        int running = 0;
        std::vector<int> lanes;          // how many run in each
        size_t firstLane = 0;            // those before it are full
        typename CReady::node_type node; // while it is not among those that are ready
        COrder order = {};               // under which it is

        /// For one more that waits, so that its start needs no memory.
        void reserveLanes(int atOnce, int width)
        {
            const size_t most
                = std::min(static_cast<size_t>(running) + waiting.size() + 1, static_cast<size_t>(atOnce));
            const size_t needed = (most + static_cast<size_t>(width) - 1) / static_cast<size_t>(width);
            if (lanes.size() < needed)
                lanes.resize(needed);
        }

        size_t enterLane(int width) noexcept
        {
            while (lanes[firstLane] == width)
                ++firstLane;
            ++lanes[firstLane];
            return firstLane;
        }

        void leaveLane(size_t lane) noexcept
        {
            --lanes[lane];
            firstLane = std::min(firstLane, lane);
        }
    };

    CHost& getHost(const std::string& name)
    {
        const auto known = m_hosts.find(name);
        if (known != m_hosts.end())
            return known->second;
        CReady maker;
        maker.emplace();
        const auto added = m_hosts.try_emplace(name).first;
        added->second.name = &added->first;
        added->second.node = maker.extract(maker.begin());
        added->second.node.mapped() = &added->second;
        return added->second;
    }

    /// After each change of a host. Takes no memory, so that nobody can be forgotten for want of it.
    void refresh(CHost& host)
    {
        if (host.node.empty())
            host.node = m_ready.extract(host.order);
        if (host.waiting.empty() || (m_perHost != 0 && host.running >= m_perHost))
            return;
        host.order = host.waiting.begin()->first;
        host.node.key() = host.order;
        m_ready.insert(std::move(host.node));
    }

    // A few are kept: who has had one transfer often has another.
    void forgetIfUnused(CHost& host)
    {
        constexpr size_t keptHosts = 64;
        if (host.waiting.empty() && host.running == 0 && m_hosts.size() > keptHosts)
            m_hosts.erase(m_hosts.find(*host.name));
    }

    const int m_atOnce;
    const int m_perHost;
    const int m_laneWidth;
    int m_running = 0;
    std::uint64_t m_count = 0; // of all that ever came
    std::map<std::string, CHost> m_hosts;
    CReady m_ready; // hosts with room, each under the first that waits for it
};

} // namespace norla
