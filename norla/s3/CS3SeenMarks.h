#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace norla {

/// Finds out whether a walk goes in a circle, in bounded memory: each circle is found, a short one at once, a long one
/// at the latest when it has been walked four times.
class CS3SeenMarks {
public:
    static constexpr size_t most = 10'000;

    /// Whether the walk has been here, as far as that is remembered.
    bool has(const std::string& mark) const { return m_marks.contains(mark); }

    /// Takes note of the place where the walk is now. @param mark as short as a digest
    void add(std::string mark)
    {
        ++m_count;
        if (m_count == m_nextBeginning) { // what is remembered lies before the circle, or this is longer than that
            m_marks.clear();
            m_nextBeginning *= 2;
        }
        if (m_marks.size() < most)
            m_marks.insert(std::move(mark));
    }

private:
    std::set<std::string> m_marks; // those behind the last beginning
    size_t m_count = 0;
    size_t m_nextBeginning = 2 * most;
};

} // namespace norla
