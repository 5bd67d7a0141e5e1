#include "norla/http/CHeaderAssembler.h"

#include "kx/base/CError.h"
#include "kx/text/whitespace.h"
#include "norla/core/headerEntry.h"
#include "norla/http/CServerInfo.h"

#include <utility>

namespace norla {

CHeaderAssembler::CHeaderAssembler() = default;

CHeaderAssembler::~CHeaderAssembler() = default;

void CHeaderAssembler::reset()
{
    if (!m_headerMap.empty()) {
        m_spareEntries.swap(m_headerMap);
        m_headerMap.clear();
    }
    m_lastValue = nullptr;
    m_finished = false;
}

void CHeaderAssembler::setServerInfoToUpdate(CServerInfo* serverInfo)
{
    m_serverInfoToUpdate = serverInfo;
}

void CHeaderAssembler::handleHeaderLine(const kx::String& line)
{
    if (m_finished)
        return;
    if (line.toWide() == L"\r\n")
        finish();
    else if (!line.isEmpty() && kx::isWhiteSpace(line[0]))
        continueHeader(line);
    else
        startHeader(line);
}

void CHeaderAssembler::finish()
{
    m_finished = true;
    if (m_serverInfoToUpdate)
        m_serverInfoToUpdate->updateFromHeaders(m_headerMap);
}

void CHeaderAssembler::startHeader(const kx::String& line)
{
    const auto [name, value] = splitHeaderEntry(line.toWide());
    m_name.assign(name);
    m_name = std::move(m_name).toLower();
    const auto place = m_headerMap.lower_bound(m_name);
    if (place == m_headerMap.end() || place->first != m_name)
        m_lastValue = &newEntry(place, value);
    else
        m_lastValue = &join(place->second, value);
}

// The answers of a server have much the same headers: an entry of the last one spares its allocations.
kx::String& CHeaderAssembler::newEntry(Map::const_iterator place, std::wstring_view value)
{
    Map::node_type spare = m_spareEntries.extract(m_name);
    if (!spare)
        return m_headerMap.try_emplace(place, m_name, std::wstring(value))->second;
    spare.mapped().assign(value);
    return m_headerMap.insert(place, std::move(spare))->second;
}

kx::String& CHeaderAssembler::join(kx::String& stored, std::wstring_view value)
{
    if (stored.isEmpty())
        stored.assign(value);
    else
        stored += "," + kx::String(std::wstring(value));
    return stored;
}

void CHeaderAssembler::continueHeader(const kx::String& line)
{
    if (!m_lastValue)
        throw kx::CError("Error parsing HTTP header: first line starts with whitespace.");
    *m_lastValue += " " + line.trim();
}

} // namespace norla
