#include "kx/base/CInvalidArgError.h"

namespace kx {

CInvalidArgError::CInvalidArgError(const String& detail, const String& functionName, const CProps& props)
    : CError("Invalid argument passed to '" + functionName + "': " + detail + ".", String(), -1, props)
{
}

CInvalidArgError::~CInvalidArgError() = default;

P<CError> CInvalidArgError::clone() const
{
    return newObj<CInvalidArgError>(*this);
}

void CInvalidArgError::throwClone() const
{
    throw CInvalidArgError(*this);
}

} // namespace kx
