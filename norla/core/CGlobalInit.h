#pragma once

#include "kx/base/CBase.h"
#include "kx/base/TSafeGlobalPointer.h"

namespace norla {

/// The process-wide initialisation that OpenSSL and libcurl need before the first transfer, made once and undone at
/// process exit. Whatever may be the first to touch libcurl calls get() while it is being constructed; applications
/// need not.
class KX_EXPORT CGlobalInit : public kx::CBase {
public:
    /// The instance of the process, made on the first call. Any thread; waits while another thread is making it.
    /// @throws kx::CError "curl global init failed" when libcurl refuses (a later call tries again); "Construction of
    /// static object has failed." when OpenSSL could not be set up or the process is exiting
    static kx::TSafeGlobalPointer<CGlobalInit>& get();

    /// Whether construction of the instance has been started.
    static kx::CSafeGlobalGuard& globalInstanceGuard();

    ~CGlobalInit() override;

private:
    CGlobalInit();
};

} // namespace norla
