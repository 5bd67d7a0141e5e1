#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"

namespace norla {

/// What a Content-Range header says (RFC 9110 section 14.4): which part of a resource a response holds. Immutable.
class KX_EXPORT CHTTPContentRange : public virtual kx::CBase {
public:
    /// Keeps the values as they are given.
    CHTTPContentRange(const kx::String& unit, long long first, long long last, long long total);
    ~CHTTPContentRange() override;

    /// Parses the header's value, such as "bytes 0-499/1234", with or without white space around it. The numbers need
    /// not make sense together.
    /// @throws kx::CError "Invalid HTTP Content-Range header: ..."; kx::parseInt64()'s error for what should be a
    /// number
    static kx::P<CHTTPContentRange> parse(const kx::String& header);

    /// What is counted; after parse() in lower case and never empty, normally "bytes".
    const kx::String& getUnit() const noexcept { return m_unit; }

    /// The position of the first byte, counted from 0; -1 when the header has "*" for the range ("bytes */1234").
    long long getFirst() const noexcept { return m_first; }

    /// The position of the last byte, which belongs to the range; -1 when the header has "*" for the range.
    long long getLast() const noexcept { return m_last; }

    /// The size of the whole resource; -1 when the header has "*" for it ("bytes 0-499/*").
    long long getTotal() const noexcept { return m_total; }

private:
    kx::String m_unit;
    long long m_first;
    long long m_last;
    long long m_total;
};

} // namespace norla
