#include "norla/core/CNetHeaders.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/headerEntry.h"

#include <curl/curl.h>

#include <string>
#include <string_view>
#include <utility>

namespace norla {

namespace {

/// Whether this is a line of addEmpty(): those of add() have a colon.
bool isSentEmpty(const std::wstring& line)
{
    return line.ends_with(L';') && line.find(L':') == std::wstring::npos;
}

} // namespace

CNetHeaders::CNetHeaders()
{
    CGlobalInit::get();
}

CNetHeaders::~CNetHeaders() = default;

void CNetHeaders::add(const kx::String& name, const kx::String& value)
{
    m_lines.add(name.trim() + ": " + value.trim());
}

void CNetHeaders::addEmpty(const kx::String& name)
{
    const kx::String trimmed = name.trim();
    if (trimmed.isEmpty() || trimmed.toWide().find_first_of(L":;\r\n") != std::wstring::npos)
        throw kx::CInvalidArgError("'" + name + "' is not the name of a header", "CNetHeaders::addEmpty");
    m_lines.add(trimmed + ";");
}

void CNetHeaders::sendEmpty(const kx::String& namePrefix)
{
    const kx::String prefix = namePrefix.toLower();
    for (curl_slist* node = m_lines.getCurlList(); node; node = node->next) {
        const std::string_view line = node->data;
        const size_t colon = line.find(':');
        const bool isEmpty = colon != std::string_view::npos && line.substr(colon) == ": ";
        if (!isEmpty || !kx::String::fromUTF8(line.substr(0, colon)).toLower().startsWith(prefix))
            continue;
        // In its place, so that everybody who holds this list or libcurl's goes on with it.
        node->data[colon] = ';';
        node->data[colon + 1] = '\0';
    }
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
    const bool isThere = m_lines->next();
    const kx::String& line = m_lines->getCurrent(); // empty at the end
    const bool isEmpty = isSentEmpty(line.toWide());
    if (isThere && !isEmpty) {
        splitEntry(line, m_name, m_value);
        return true;
    }
    m_name = isEmpty ? line.substr(0, line.size() - 1) : kx::String();
    m_value = kx::String();
    return isThere;
}

} // namespace norla
