#pragma once

#include "kx/containers/TArray.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/pathText.h"
#include "kx/text/String.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace kx {

/// The name of a file or folder. A value type; it looks at text only, never at the file system.
///
/// The system's names are bytes, which mostly are UTF-8 but need not be. fromBytes() keeps every byte that does not
/// belong to UTF-8 as one character, U+DC80 to U+DCFF (U+DC00 plus the byte, as Python's PEP 383 does), and toBytes()
/// gives it back: any name goes there and back unchanged. These characters are surrogates: the text of such a path has
/// no UTF-8 form, and is shown by String::toDisplayUTF8().
template <typename TTraits>
class TPathImpl {
public:
    TPathImpl() = default; ///< the empty path
    TPathImpl(const String& path)
        : m_path(path)
    {
    }
    /// A literal in ISO 8859-1. Paths from outside are bytes: fromBytes().
    template <size_t size>
    TPathImpl(const char (&literal)[size])
        : m_path(literal)
    {
    }
    template <size_t size>
    TPathImpl(char (&use_fromBytes)[size]) = delete; ///< holds bytes from elsewhere
    template <UntoldBytes T>
    TPathImpl(const T& use_fromBytes) = delete; ///< bytes from elsewhere

    /// A path as the system gives it: argv, getenv(), std::filesystem::path::native().
    static TPathImpl fromBytes(std::string_view bytes) { return TPathImpl(pathTextFromBytes(bytes)); }

    /// The path as the system wants it.
    /// @throws CError on characters that neither have a UTF-8 form nor come from fromBytes()
    std::string toBytes() const { return pathTextToBytes(m_path); }

    const String& toString() const noexcept { return m_path; }
    bool isEmpty() const noexcept { return m_path.isEmpty(); }
    bool isAbsolute() const noexcept { return !isEmpty() && m_path[0] == TTraits::separator; }

    /// The last part of the path: all of it when there is no separator, empty when it ends in one.
    String getFileName() const
    {
        const size_t separator = m_path.rfind(TTraits::separator);
        return separator == String::npos ? m_path : m_path.substr(separator + 1);
    }

    /// The path within this folder; an absolute one stays as it is.
    TPathImpl operator/(const TPathImpl& inner) const
    {
        if (isEmpty() || inner.isAbsolute())
            return inner;
        String joined = m_path;
        if (joined[joined.size() - 1] != TTraits::separator)
            joined += TTraits::separator;
        return TPathImpl(joined += inner.m_path);
    }

    /// The same path in its shortest form: no "." parts, no repeated or trailing separators.
    /// @param resolveParents whether "name/.." is cut as well (which may name another file where "name" is a link)
    /// @param base folder to which a relative path is taken to belong; empty leaves it relative
    TPathImpl toNormalized(bool resolveParents, const TPathImpl& base) const
    {
        if (isEmpty())
            return *this;
        const TPathImpl whole = base / *this;
        return join(shortest(whole.split(), resolveParents, whole.isAbsolute()), whole.isAbsolute());
    }

    friend bool operator==(const TPathImpl&, const TPathImpl&) = default;

private:
    TArray<String> split() const
    {
        TArray<String> parts;
        for (size_t start = 0; start < m_path.size();) {
            const size_t end = std::min(m_path.find(TTraits::separator, start), m_path.size());
            parts.push_back(m_path.substr(start, end - start));
            start = end + 1;
        }
        return parts;
    }

    static TArray<String> shortest(const TArray<String>& parts, bool resolveParents, bool absolute)
    {
        TArray<String> kept;
        for (const String& part : parts) {
            if (part.isEmpty() || part == ".")
                continue;
            const bool isParent = resolveParents && part == "..";
            if (isParent && !kept.empty() && kept.back() != "..")
                kept.pop_back();
            else if (!isParent || !absolute)
                kept.push_back(part);
        }
        return kept;
    }

    static TPathImpl join(const TArray<String>& parts, bool absolute)
    {
        String path;
        for (const String& part : parts) {
            if (absolute || !path.isEmpty())
                path += TTraits::separator;
            path += part;
        }
        if (path.isEmpty())
            path += absolute ? L'/' : L'.';
        return TPathImpl(path);
    }

    String m_path;
};

} // namespace kx
