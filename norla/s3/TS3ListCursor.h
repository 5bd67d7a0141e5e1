#pragma once

#include "norla/s3/CS3ListPages.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace norla {

/// A place in a list that comes in pages. It has the items of one page.
template <typename TItem>
class TS3ListCursor {
public:
    /// As the constructor of CS3ListPages.
    TS3ListCursor(CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options,
        const kx::String& delimiter, const CS3ListKind& kind)
        : m_pages(client, request, bucketName, options, delimiter, kind)
    {
    }

    /// Goes on to the next item, the first one at first.
    /// @param fetchItems makes a page's items of pages
    template <typename TFetch>
    bool next(TFetch fetchItems)
    {
        if (m_index + 1 < m_items.size()) {
            ++m_index;
            return true;
        }
        m_items.clear();
        m_index = 0;
        constexpr int mostEmptyPages = 1000; // stores give some where much was removed
        for (int emptyPages = 0; !m_pages.isOver(); ++emptyPages) {
            if (emptyPages == mostEmptyPages)
                m_pages.fail("does not end: there are a thousand empty pages");
            m_items = fetchItems(m_pages);
            if (!m_items.empty())
                return true;
        }
        return false;
    }

    /// Null before the first next() and when there is none any more.
    const TItem* getCurrent() const noexcept { return m_items.empty() ? nullptr : &m_items[m_index]; }

private:
    CS3ListPages m_pages;
    std::vector<TItem> m_items;
    size_t m_index = 0;
};

} // namespace norla
