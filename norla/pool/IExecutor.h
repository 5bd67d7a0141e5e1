#pragma once

#include "kx/base/IBase.h"

#include <functional>

namespace norla {

/// Runs what others hand to it, where and when is its own matter: on the thread of a window's main loop, on a pool of
/// threads, at once. A program's own main loop is one in a few lines; with GLib by g_source_attach() or g_idle_add(),
/// but not by g_main_context_invoke(), which runs the task on the caller's thread while nobody runs the loop.
class KX_EXPORT IExecutor : public virtual kx::IBase {
public:
    /// Takes a task and returns without waiting for it. Any thread. Tasks of one caller are run in the order in which
    /// they come, never two at once.
    /// @param task throws nothing when it is of this library; run once, or destroyed without having run
    virtual void execute(std::function<void()> task) = 0;
};

} // namespace norla
