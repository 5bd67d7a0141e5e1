#include "norla/core/CCallbackPair.h"

namespace norla {

CCallbackPair::CCallbackPair(CEasyHandle& handle, CURLoption functionOption, CURLoption dataOption) noexcept
    : m_handle(handle)
    , m_functionOption(functionOption)
    , m_dataOption(dataOption)
{
}

bool CCallbackPair::notice(CURLoption option, void* value) noexcept
{
    if (option == m_functionOption)
        m_function = value;
    else if (option == m_dataOption)
        m_data = value;
    else
        return false;
    return true;
}

void CCallbackPair::stay()
{
    if (!m_isOwn)
        return;
    m_handle.set(m_functionOption, m_ownFunction);
    m_handle.set(m_dataOption, m_ownData);
}

void CCallbackPair::giveWay()
{
    if (!m_isOwn)
        return;
    m_handle.set(m_functionOption, m_function);
    m_handle.set(m_dataOption, m_data);
    m_isOwn = false;
}

void CCallbackPair::forget() noexcept
{
    m_function = nullptr;
    m_data = nullptr;
    m_isOwn = false;
}

} // namespace norla
