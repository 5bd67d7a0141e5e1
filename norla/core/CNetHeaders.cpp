#include "norla/core/CNetHeaders.h"

#include "norla/core/CGlobalInit.h"
#include "norla/core/headerEntry.h"

#include <utility>

namespace norla {

CNetHeaders::CNetHeaders()
{
    CGlobalInit::get();
}

CNetHeaders::~CNetHeaders() = default;

void CNetHeaders::add(const kx::String& name, const kx::String& value)
{
    m_lines.add(name.trim() + ": " + value.trim());
}

void CNetHeaders::splitEntry(const kx::String& entry, kx::String& name, kx::String& value)
{
    const auto [newName, newValue] = splitHeaderEntry(entry.toWide());
    // Both are made before either is stored: the entry may be one of the outputs.
    kx::String madeValue{std::wstring(newValue)};
    name = kx::String(std::wstring(newName));
    value = std::move(madeValue);
}

void CNetHeaders::fillMap(kx::TMap<kx::String, kx::String>& map)
{
    for (const auto line = createIterator(); line->next();) {
        const auto [entry, isNew] = map.try_emplace(line->getName().toLower(), line->getValue());
        if (!isNew)
            entry->second += "," + line->getValue();
    }
}

kx::P<CNetHeaders::CIterator> CNetHeaders::createIterator()
{
    return kx::newObj<CIterator>(m_lines.createIterator());
}

CNetHeaders::CIterator::CIterator(kx::P<CNetStringList::CIterator> lines)
    : m_lines(std::move(lines))
{
}

CNetHeaders::CIterator::~CIterator() = default;

void CNetHeaders::CIterator::reset()
{
    m_lines->reset();
    m_name = kx::String();
    m_value = kx::String();
}

bool CNetHeaders::CIterator::next()
{
    if (m_lines->next()) {
        splitEntry(m_lines->getCurrent(), m_name, m_value);
        return true;
    }
    m_name = kx::String();
    m_value = kx::String();
    return false;
}

} // namespace norla
