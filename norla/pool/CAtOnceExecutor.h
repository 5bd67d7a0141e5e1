#pragma once

#include "kx/base/CBase.h"
#include "norla/pool/IExecutor.h"

namespace norla {

/// Calls at once, on the thread that tells. What is called there only notes what has happened.
class CAtOnceExecutor : public kx::CBase, public virtual IExecutor {
public:
    void execute(std::function<void()> task) override { task(); }
};

} // namespace norla
