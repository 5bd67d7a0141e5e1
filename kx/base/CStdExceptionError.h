#pragma once

#include "kx/base/CError.h"

namespace kx {

/// An exception of the standard library (or of the application) in the form of a CError: the message is its what(), the
/// domain is empty, the code -1.
class KX_EXPORT CStdExceptionError : public CError {
public:
    explicit CStdExceptionError(const std::exception& original);
    CStdExceptionError(const CStdExceptionError&) = default;
    ~CStdExceptionError() override;

    P<CError> clone() const override;
    [[noreturn]] void throwClone() const override;

    /// The exception as a CError: a clone when it is one already (its class survives), otherwise a CStdExceptionError.
    static P<CError> exceptionToError(const std::exception& original);
};

} // namespace kx
