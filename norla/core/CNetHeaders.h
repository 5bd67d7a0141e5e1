#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "norla/core/CNetStringList.h"

namespace norla {

/// The header lines of a request, in the order of adding, sent as UTF-8. Used by one thread at a time.
class KX_EXPORT CNetHeaders : public kx::CBase {
public:
    class CIterator;

    /// @throws kx::CError as CGlobalInit::get()
    CNetHeaders();
    CNetHeaders(const CNetHeaders&) = delete;
    CNetHeaders& operator=(const CNetHeaders&) = delete;
    ~CNetHeaders() override;

    /// Adds the line name + ": " + value, both without surrounding white space. Nothing is checked: line ends within
    /// reach the server, unless the request has the safe defaults. libcurl does not send a line with an empty value; it
    /// leaves out its own header of that name instead (CURLOPT_HTTPHEADER). addEmpty() sends one.
    /// @throws as CNetStringList::add()
    void add(const kx::String& name, const kx::String& value);

    /// Adds a header with an empty value that is sent, "Name:", as the line "Name;", which is libcurl's way to write it
    /// (CURLOPT_HTTPHEADER). The name without surrounding white space.
    /// @throws kx::CInvalidArgError when the name is empty or holds ":", ";" or a line end; as CNetStringList::add()
    void addEmpty(const kx::String& name);

    /// Lets the headers that add() was given with an empty value, and whose names begin so, be sent as those of
    /// addEmpty().
    /// @param namePrefix ASCII letters of either case count as the same
    void sendEmpty(const kx::String& namePrefix);

    /// Splits a line at its first ":" into name and value, both without surrounding white space.
    /// @throws kx::CInvalidArgError when there is no ":" or the name is empty; name and value may have changed then
    static void splitEntry(const kx::String& entry, kx::String& name, kx::String& value);

    /// Adds every line to the map under its lower-cased name, those of addEmpty() with an empty value. Where the name
    /// is there already, "," and the value are appended (RFC 9110 section 5.3).
    void fillMap(kx::TMap<kx::String, kx::String>& map);

    /// Walks the lines; it starts before the first.
    kx::P<CIterator> createIterator();

    /// libcurl's list, as CNetStringList::getCurlList().
    curl_slist* getCurlList() const noexcept { return m_lines.getCurlList(); }

private:
    CNetStringList m_lines;
};

/// A place among the header lines; it begins before the first. The lines of addEmpty() have an empty value.
class KX_EXPORT CNetHeaders::CIterator : public kx::CBase {
public:
    explicit CIterator(kx::P<CNetStringList::CIterator> lines);
    ~CIterator() override;

    /// Back to before the first line.
    void reset();

    /// Goes on to the next line.
    /// @return false at the end, where name and value are empty
    bool next();

    const kx::String& getName() const noexcept { return m_name; }
    const kx::String& getValue() const noexcept { return m_value; }

private:
    const kx::P<CNetStringList::CIterator> m_lines;
    kx::String m_name;
    kx::String m_value;
};

} // namespace norla
