#pragma once

#include "examples/CAddress.h"

#include <cstdlib>
#include <map>
#include <string>
#include <utility>

/// The logins of several addresses. Each password is asked for once; that of the environment is for one login: the
/// other servers must not learn it.
class CLogins {
public:
    /// @param variable of the environment that may hold a password
    explicit CLogins(std::string variable)
        : m_variable(std::move(variable))
    {
    }

    /// Gives the address the password that it lacks.
    /// @throws as usageError() where that of the environment would be for a second login, and as
    /// CAddress::completeLogin()
    void complete(CAddress& address)
    {
        const kx::String account = address.account();
        if (const auto known = m_passwords.find(account); known != m_passwords.end() && !address.password())
            address.setPassword(known->second);
        if (address.lacksPassword()) {
            if (std::getenv(m_variable.c_str()))
                takeVariable(account);
            address.completeLogin(m_variable);
        }
        if (address.password())
            m_passwords[account] = *address.password();
    }

private:
    void takeVariable(const kx::String& account)
    {
        if (m_accountOfVariable.isEmpty())
            m_accountOfVariable = account;
        if (m_accountOfVariable != account)
            throw usageError("the password of " + shownPath(m_variable) + " is for one login, and not for "
                + m_accountOfVariable + " and " + account);
    }

    const std::string m_variable;
    kx::String m_accountOfVariable;               ///< empty before one has it
    std::map<kx::String, kx::String> m_passwords; ///< by account
};
