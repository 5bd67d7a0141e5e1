#include "norla/core/CFirstError.h"

#include "kx/base/CStdExceptionError.h"

namespace norla {

void CFirstError::keep(const std::exception& error) noexcept
{
    if (m_error)
        return;
    try {
        m_error = kx::CStdExceptionError::exceptionToError(error);
    } catch (const std::exception&) {
        m_error = m_outOfMemory;
    }
}

} // namespace norla
