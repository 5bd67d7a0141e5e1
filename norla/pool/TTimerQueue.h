#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <utility>

namespace norla {

/// Who is to be woken when: at most one moment for each item. Knows nothing of threads.
template <typename TItem>
class TTimerQueue {
public:
    using CMoment = std::chrono::steady_clock::time_point;

    /// Replaces the moment that was set before. An item that has one already needs no memory for another.
    /// @param set the item's present moment, which the item keeps for the queue; empty: none
    void set(TItem* item, std::optional<CMoment>& set, CMoment moment)
    {
        if (!set) {
            m_timers.emplace(moment, item);
        } else {
            auto node = m_timers.extract({*set, item});
            node.value().first = moment;
            m_timers.insert(std::move(node));
        }
        set = moment;
    }

    void clear(TItem* item, std::optional<CMoment>& set)
    {
        if (set)
            m_timers.erase({*set, item});
        set.reset();
    }

    /// Empty: nobody is to be woken.
    std::optional<CMoment> getFirst() const
    {
        if (m_timers.empty())
            return {};
        return m_timers.begin()->first;
    }

    /// @return whose moment has come, the earliest one first; null for nobody
    TItem* getDue(CMoment now) const
    {
        return m_timers.empty() || m_timers.begin()->first > now ? nullptr : m_timers.begin()->second;
    }

private:
    std::set<std::pair<CMoment, TItem*>> m_timers;
};

} // namespace norla
