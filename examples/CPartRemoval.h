#pragma once

#include "examples/CEndingSignals.h"
#include "examples/text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <string>
#include <unistd.h>

/// As long as it lives, a signal that ends the program removes a file first, if it is still there. One at a time.
class CPartRemoval {
public:
    /// @param path empty for no file
    explicit CPartRemoval(const Path& path)
    {
        const std::string bytes = path.toBytes();
        g_path[bytes.copy(g_path.data(), g_path.size() - 1)] = '\0';
    }

private:
    static void remove() noexcept { unlink(g_path.data()); }

    static inline std::array<char, PATH_MAX> g_path{};
    const CEndingSignals m_endings{remove};
};
