#pragma once

#include "kx/base/CBase.h"
#include "kx/base/TSafeGlobalPointer.h"

namespace sela {

/// OpenSSL's process-wide set-up and clean-up, as two instances that live until the process exits.
class KX_EXPORT COpenSSLInit {
public:
    /// Makes OpenSSL usable from every thread. OpenSSL 3 brings its own locks; what is left is to initialise it before
    /// the first user does, which also registers OpenSSL's clean-up so early that it runs after ours.
    class KX_EXPORT CThreadStuff : public kx::CBase {
    public:
        static kx::TSafeGlobalPointer<CThreadStuff>& get();
        static kx::CSafeGlobalGuard& globalInstanceGuard();

        /// @throws kx::CError "Construction of static object has failed." when OpenSSL cannot be initialised
        CThreadStuff();
        ~CThreadStuff() override;
    };

    /// Frees at process exit what OpenSSL holds for the exiting thread. The rest is left to OpenSSL's own exit handler:
    /// other users of OpenSSL in the process may not have finished.
    class KX_EXPORT CCleaner : public kx::CBase {
    public:
        static kx::TSafeGlobalPointer<CCleaner>& get();
        static kx::CSafeGlobalGuard& globalInstanceGuard();

        CCleaner() noexcept;
        ~CCleaner() override;
    };
};

} // namespace sela
