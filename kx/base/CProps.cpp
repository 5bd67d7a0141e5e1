#include "kx/base/CProps.h"

namespace kx {

String CProps::get(const String& key) const
{
    const auto found = m_map.find(key);
    return found == m_map.end() ? String() : found->second;
}

bool CProps::has(const String& key) const
{
    return m_map.contains(key);
}

void CProps::set(const String& key, const String& value)
{
    m_map.insert_or_assign(key, value);
}

} // namespace kx
