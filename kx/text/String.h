#pragma once

#include "kx/base/visibility.h"

#include <compare>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kx {

/// Bytes that do not say what text they are: a char*, a std::string, a std::string_view. No array: a literal does.
template <typename T>
concept UntoldBytes = !std::is_array_v<T> && std::is_convertible_v<const T&, std::string_view>;

/// Text: a value type of Unicode code points. Compared by code point; nothing here depends on the process's locale.
///
/// Literals convert by themselves, because their encoding is known. Bytes that are known only at run time (argv,
/// getenv(), what(), a std::string) do not: fromUTF8() or fromLatin1() says what they are.
///
/// White space means space, tab, CR, LF, vertical tab and form feed. Letter case means the ASCII letters: what the
/// network protocols call case-insensitive (RFC 9110, RFC 3986), and the same under every locale.
class KX_EXPORT String {
public:
    static constexpr size_t npos = std::wstring_view::npos;

    String() noexcept = default;

    /// A literal in ISO 8859-1, up to its first zero character.
    template <size_t size>
    String(const char (&literal)[size])
        : m_text(widenLiteral(literal, size))
    {
    }
    template <size_t size>
    String(char (&use_fromUTF8_or_fromLatin1)[size]) = delete; ///< holds bytes from elsewhere
    template <UntoldBytes T>
    String(const T& use_fromUTF8_or_fromLatin1) = delete; ///< only the caller knows what they are

    String(const wchar_t* text);     ///< null gives the empty text
    String(const char8_t* utf8);     ///< a u8"" literal; null gives the empty text; throws as fromUTF8()
    String(std::nullptr_t) = delete; ///< says nothing: use String()
    explicit String(std::wstring text) noexcept
        : m_text(std::move(text))
    {
    }

    /// @throws CError on bytes that are not UTF-8 (RFC 3629: also overlong forms, surrogates and beyond U+10FFFF),
    /// naming the position of the first such byte.
    static String fromUTF8(std::string_view utf8);

    /// Every byte is one character.
    static String fromLatin1(std::string_view latin1);

    /// @throws CError on a surrogate or a value beyond U+10FFFF, which have no UTF-8 form.
    std::string toUTF8() const;

    /// For people to read: like toUTF8(), but with U+FFFD in place of what has no UTF-8 form.
    std::string toDisplayUTF8() const;

    /// @throws CError on a character beyond U+00FF.
    std::string toLatin1() const;

    const std::wstring& toWide() const noexcept { return m_text; }

    bool isEmpty() const noexcept { return m_text.empty(); }
    size_t size() const noexcept { return m_text.size(); }
    wchar_t operator[](size_t index) const noexcept { return m_text[index]; } ///< index below size()
    auto begin() const noexcept { return m_text.begin(); }
    auto end() const noexcept { return m_text.end(); }

    /// The position of the first occurrence at or after `from`; npos when there is none.
    size_t find(const String& what, size_t from = 0) const noexcept { return m_text.find(what.m_text, from); }
    size_t find(wchar_t what, size_t from = 0) const noexcept { return m_text.find(what, from); }

    /// The position of the last occurrence; npos when there is none.
    size_t rfind(wchar_t what) const noexcept { return m_text.rfind(what); }

    /// At most `count` characters from `start` on; a start beyond the end gives the empty text.
    [[nodiscard]] String substr(size_t start, size_t count = npos) const;

    [[nodiscard]] String trim() const;
    [[nodiscard]] String trimLeft() const;
    [[nodiscard]] String trimRight() const;
    [[nodiscard]] String toLower() const&;
    [[nodiscard]] String toLower() &&;

    bool startsWith(const String& prefix) const noexcept { return m_text.starts_with(prefix.m_text); }
    bool endsWith(const String& suffix) const noexcept { return m_text.ends_with(suffix.m_text); }

    /// Takes over another text, in the memory that this one has where that is enough.
    void assign(std::wstring_view text) { m_text.assign(text); }

    /// Replaces every occurrence, from left to right, not looking again at what it put in. An empty `what` replaces
    /// nothing.
    [[nodiscard]] String replaceAll(const String& what, const String& replacement) const;

    String& operator+=(const String& other);
    String& operator+=(wchar_t character);

    friend KX_EXPORT String operator+(const String& left, const String& right);
    friend KX_EXPORT String operator+(String&& left, const String& right);
    friend bool operator==(const String& left, const String& right) noexcept { return left.m_text == right.m_text; }
    friend std::strong_ordering operator<=>(const String& left, const String& right) noexcept
    {
        return left.m_text <=> right.m_text;
    }

private:
    static std::wstring widenLiteral(const char* literal, size_t size);

    std::wstring m_text;
};

/// Writes toDisplayUTF8().
KX_EXPORT std::ostream& operator<<(std::ostream& out, const String& text);

} // namespace kx
