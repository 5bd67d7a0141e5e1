#include "norla/core/CNetStringList.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"

#include <curl/curl.h>

#include <array>
#include <string>

namespace norla {

CNetStringList::~CNetStringList()
{
    curl_slist_free_all(m_first);
}

void CNetStringList::add(const kx::String& text)
{
    addUTF8(text.toUTF8());
}

void CNetStringList::addUTF8(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        throw kx::CInvalidArgError("text contains a zero character", "CNetStringList::add");
    std::array<char, 256> ended{}; // spares the usual line an allocation
    if (text.size() < ended.size()) {
        text.copy(ended.data(), text.size());
        append(ended.data());
    } else {
        append(std::string(text).c_str());
    }
}

void CNetStringList::append(const char* text)
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
    return kx::newObj<CIterator>(m_first);
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
