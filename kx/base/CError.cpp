#include "kx/base/CError.h"

#include <utility>

namespace kx {

CError::CError(const String& message, const String& domain, long long code, const CProps& props, PC<CError> cause)
    : m_message(message)
    , m_what(message.toDisplayUTF8())
    , m_domain(domain)
    , m_code(code)
    , m_props(props)
    , m_cause(std::move(cause))
{
}

CError::~CError() = default;

const char* CError::what() const noexcept
{
    return m_what.c_str();
}

P<CError> CError::clone() const
{
    return newObj<CError>(*this);
}

void CError::throwClone() const
{
    throw CError(*this);
}

PC<CError> CError::getCause() const
{
    return m_cause;
}

} // namespace kx
