#include "norla/core/CKeyPassword.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"

namespace norla {

void CKeyPassword::forgetOptions() noexcept
{
    m_tls.reset();
    m_ssh.reset();
    m_isSet = false;
}

// Also an empty one: without any, OpenSSL asks the person at the terminal.
void CKeyPassword::begin(const CRequestURL& url)
{
    const std::optional<std::string>& password = url.isSSH() ? m_ssh : m_tls;
    if (password)
        m_handle.setText(CURLOPT_KEYPASSWD, *password);
    else if (m_isSet)
        m_handle.setNull(CURLOPT_KEYPASSWD);
    m_isSet = password.has_value();
}

} // namespace norla
