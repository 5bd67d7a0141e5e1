#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CProps.h"
#include "kx/base/P.h"
#include "kx/text/String.h"

#include <exception>
#include <string>

namespace kx {

/// An error that a person can be shown and a program can act upon: thrown by value, kept and passed on as a P<CError>.
/// Nothing changes one but the assignment of another error to the whole: several threads may read one that none assigns
/// to. Causes are destroyed one within the other, so a chain of them is as short as a person reads it: one of a hundred
/// thousand would not end on a thread's stack.
class KX_EXPORT CError : public CBase, public std::exception {
public:
    /// @param message whole sentence for a person
    /// @param domain what the code belongs to; empty for plain errors, whose code is -1
    /// @param props details under fixed keys
    /// @param cause the error that led to this one, null when there is none
    explicit CError(const String& message, const String& domain = String(), long long code = -1,
        const CProps& props = CProps(), PC<CError> cause = nullptr);
    CError(const CError&) = default;
    CError& operator=(const CError&) = default;
    ~CError() override;

    /// The message in UTF-8, valid as long as the error.
    const char* what() const noexcept override;

    /// A copy on the heap, of the same class.
    virtual P<CError> clone() const;

    /// Throws a copy by value, as the same class.
    [[noreturn]] virtual void throwClone() const;

    /// The error that led to this one; null when there is none.
    virtual PC<CError> getCause() const;

    const String& getMessage() const noexcept { return m_message; }
    const String& getDomain() const noexcept { return m_domain; }
    long long getCode() const noexcept { return m_code; }
    const CProps& getProps() const noexcept { return m_props; }

private:
    String m_message;
    std::string m_what;
    String m_domain;
    long long m_code;
    CProps m_props;
    PC<CError> m_cause;
};

} // namespace kx
