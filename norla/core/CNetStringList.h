#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"

#include <string>
#include <string_view>

struct curl_slist; // libcurl's linked list of 8-bit strings

namespace norla {

/// A list of texts in the form that libcurl takes: UTF-8 in a curl_slist, in the order of adding. Used by one thread at
/// a time; it must outlive its iterators and, where libcurl was given it, the transfers that read it.
class KX_EXPORT CNetStringList : public kx::CBase {
public:
    class CIterator;

    CNetStringList() noexcept = default;
    CNetStringList(const CNetStringList&) = delete;
    CNetStringList& operator=(const CNetStringList&) = delete;
    ~CNetStringList() override;

    /// Appends the text.
    /// @throws kx::CInvalidArgError when it holds a zero character, at which libcurl would cut it off
    /// @throws kx::CError when it has no UTF-8 form
    /// @throws CCURLError when memory runs out; the list stays as it was
    void add(const kx::String& text);

    /// The same for a text that is in UTF-8 already, which is not checked. It becomes a part of libcurl's list when
    /// somebody asks for that, or for an iterator, which may throw CCURLError then.
    void addUTF8(std::string_view text);

    bool isEmpty() const noexcept { return !m_first && m_pending.empty(); }

    /// Walks the list as it is now and grows; it starts before the first text.
    kx::P<CIterator> createIterator() const;

    /// libcurl's list, owned by this object; null while empty. Adding to an empty list changes it, adding to others
    /// does not.
    curl_slist* getCurlList() const;

private:
    void append(const char* text) const;
    void appendPending() const;

    mutable curl_slist* m_first = nullptr;
    mutable curl_slist* m_last = nullptr;
    mutable std::string m_pending; // what comes behind these, each text with a zero character at its end
};

/// A place in a list; it begins before the first text.
class KX_EXPORT CNetStringList::CIterator : public kx::CBase {
public:
    /// @param first libcurl's list; null for an empty one
    explicit CIterator(curl_slist* first) noexcept;
    ~CIterator() override;

    /// Back to before the first text.
    void reset();

    /// Goes on to the next text.
    /// @return false at the end, where the current text is empty
    bool next();

    const kx::String& getCurrent() const noexcept { return m_current; }

private:
    curl_slist* const m_first;
    curl_slist* m_next;
    kx::String m_current;
};

} // namespace norla
