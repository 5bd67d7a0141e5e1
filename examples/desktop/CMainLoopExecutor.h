#pragma once

#include "kx/base/CBase.h"
#include "norla/pool/IExecutor.h"

#include <glib.h>
#include <memory>

/// Runs the library's callbacks on the thread that runs GLib's main loop, where alone windows may be touched. However
/// many wait, it gives way to keys, clicks and drawing after 5 ms: one of them may last, not their number.
class CMainLoopExecutor : public kx::CBase, public virtual norla::IExecutor {
public:
    /// @param context of the loop; null: the default one, which GTK's is. A reference is kept
    explicit CMainLoopExecutor(GMainContext* context = nullptr);
    CMainLoopExecutor(const CMainLoopExecutor&) = delete;
    CMainLoopExecutor& operator=(const CMainLoopExecutor&) = delete;

    /// On the loop's thread. Tasks that have not run are destroyed.
    ~CMainLoopExecutor() override;

    /// Any thread. @param task throws nothing
    void execute(std::function<void()> task) override;

private:
    struct CTasks;

    static gboolean runSome(void* tasks) noexcept;

    GMainContext* const m_context;
    const std::shared_ptr<CTasks> m_tasks;
};
