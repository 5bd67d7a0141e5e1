#pragma once

#include "kx/base/IBase.h"

namespace kx {

class CThread;

/// The body of a CThread.
class KX_EXPORT IRunnable : public virtual IBase {
public:
    /// Runs on the thread until the work is done or `thread.checkContinue()` is false.
    virtual void run(CThread& thread) = 0;
};

} // namespace kx
