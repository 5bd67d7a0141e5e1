#include "norla/core/CNetStringList.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>

namespace norla {

namespace {

void requireWhole(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        throw kx::CInvalidArgError("text contains a zero character", "CNetStringList::add");
}

} // namespace

CNetStringList::~CNetStringList()
{
    curl_slist_free_all(m_first);
}

void CNetStringList::add(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    requireWhole(bytes);
    appendPending();
    append(bytes.c_str());
}

// Of most lists of response lines nobody reads a line: a text costs a copy here, and two allocations in libcurl's form.
void CNetStringList::addUTF8(std::string_view text)
{
    requireWhole(text);
    constexpr size_t usualSize = 1000; // of the lines of a response, in one allocation
    if (m_pending.empty())
        m_pending.reserve(std::max(usualSize, text.size() + 1));
    m_pending.append(text).push_back('\0');
}

curl_slist* CNetStringList::getCurlList() const
{
    appendPending();
    return m_first;
}

void CNetStringList::appendPending() const
{
    size_t start = 0;
    try {
        while (start < m_pending.size()) {
            const char* const text = m_pending.c_str() + start;
            append(text);
            start += std::strlen(text) + 1;
        }
    } catch (const CCURLError&) {
        m_pending.erase(0, start);
        throw;
    }
    m_pending.clear();
}

void CNetStringList::append(const char* text) const
{
    // Appending to the last node rather than to the list spares libcurl the walk through all of it.
    curl_slist* const appended = curl_slist_append(m_last, text);
    if (!appended)
        throw CCURLError(CURLE_OUT_OF_MEMORY, "a text could not be added to a list for libcurl", "", -1, "");
    m_last = m_last ? m_last->next : appended;
    if (!m_first)
        m_first = m_last;
}

kx::P<CNetStringList::CIterator> CNetStringList::createIterator() const
{
    return kx::newObj<CIterator>(getCurlList());
}

CNetStringList::CIterator::CIterator(curl_slist* first) noexcept
    : m_first(first)
    , m_next(first)
{
}

CNetStringList::CIterator::~CIterator() = default;

void CNetStringList::CIterator::reset()
{
    m_next = m_first;
    m_current = kx::String();
}

bool CNetStringList::CIterator::next()
{
    m_current = m_next ? kx::String::fromUTF8(m_next->data) : kx::String();
    if (!m_next)
        return false;
    m_next = m_next->next;
    return true;
}

} // namespace norla
