#pragma once

#include <string>
#include <vector>

namespace bench {

using Words = std::vector<std::string>; ///< of a command

/// Whether there is such a program in PATH; says so where there is none.
bool isInstalled(const std::string& program);

Words joined(Words words, const Words& more);

} // namespace bench
