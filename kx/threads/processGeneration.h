#pragma once

#include "kx/base/visibility.h"

namespace kx {

/// A number that is another one in each child process (fork) than in its parent: an object that keeps it can tell later
/// whether its threads are there, without asking the system. Children that come about in another way than by fork() are
/// not told apart. Any thread.
KX_EXPORT unsigned int processGeneration() noexcept;

} // namespace kx
