#pragma once

#include <array>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>

namespace sela {

/// Files that were looked at already, for who would read them again and again: which, and in which state each was then.
/// Knows the last few. Any thread.
class CKnownFiles {
public:
    /// Which file a name stands for, and what changes when it does.
    struct CState {
        dev_t device = 0;
        ino_t number = 0;
        off_t size = 0;
        timespec changed{}; // of its content, name, owner or rights
    };

    /// @return the state of the file now; empty for what is no file, and for one that has changed within the last two
    /// seconds: the next change might leave the same time
    static std::optional<CState> stateOf(const std::string& path) noexcept;

    bool isKnown(const CState& state) const noexcept;
    void add(const CState& state) noexcept;

private:
    static constexpr size_t mostFiles = 8;

    mutable std::mutex m_mutex;
    std::array<CState, mostFiles> m_states{};
    size_t m_count = 0; // of those that were added, ever
};

} // namespace sela
