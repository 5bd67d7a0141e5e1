#pragma once

#include <map>
#include <optional>

namespace norla {

/// Which bytes of a file are there: ranges that neither touch nor overlap, in order. A value.
class CByteRanges {
public:
    /// @param start, end the first byte, and the one behind the last; nothing is added when they are the same
    void add(long long start, long long end);
    void clear() noexcept { m_ends.clear(); }

    /// Nothing at or behind that position is there any more.
    void cut(long long position);

    bool isEmpty() const noexcept { return m_ends.empty(); }
    long long getSize() const noexcept; ///< of all of them, in bytes
    bool covers(long long start, long long end) const;

    struct CRange {
        long long start;
        long long end; ///< behind the last byte
    };

    /// The first gap that begins at or behind that position. @param end of the file; nothing at or behind it is missing
    std::optional<CRange> gapFrom(long long position, long long end) const;

    /// How many bytes there are without a gap from that position on, and just before it.
    long long sizeFrom(long long position) const;
    long long sizeBefore(long long position) const;

    /// Start to end.
    const std::map<long long, long long>& getAll() const noexcept { return m_ends; }

    friend bool operator==(const CByteRanges&, const CByteRanges&) = default;

private:
    std::map<long long, long long> m_ends; // by start
};

} // namespace norla
