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
    m_headerMap.clear();
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
    else if (!line.isEmpty() && kx::whiteSpace.find(line[0]) != std::wstring_view::npos)
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
    kx::String text{std::wstring(value)};
    // What is not inserted is not moved from.
    const auto [entry, isNew] = m_headerMap.try_emplace(kx::String(std::wstring(name)).toLower(), std::move(text));
    if (!isNew && entry->second.isEmpty())
        entry->second = std::move(text);
    else if (!isNew)
        entry->second += "," + text;
    m_lastValue = &entry->second;
}

void CHeaderAssembler::continueHeader(const kx::String& line)
{
    if (!m_lastValue)
        throw kx::CError("Error parsing HTTP header: first line starts with whitespace.");
    *m_lastValue += " " + line.trim();
}

} // namespace norla
