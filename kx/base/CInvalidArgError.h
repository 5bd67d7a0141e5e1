#pragma once

#include "kx/base/CError.h"

namespace kx {

/// A caller passed something that the function does not take. Plain error: empty domain, code -1.
class KX_EXPORT CInvalidArgError : public CError {
public:
    /// The message becomes "Invalid argument passed to '" + functionName + "': " + detail + ".".
    CInvalidArgError(const String& detail, const String& functionName, const CProps& props = CProps());
    CInvalidArgError(const CInvalidArgError&) = default;
    ~CInvalidArgError() override;

    P<CError> clone() const override;
    [[noreturn]] void throwClone() const override;
};

} // namespace kx
