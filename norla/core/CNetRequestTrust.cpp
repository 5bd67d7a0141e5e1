// How the two sides of a connection prove who they are.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

void CNetRequest::setTLSOptions(const CTLSOptions& options)
{
    m_rooms->tls.set(options);
    const bool hasKey = !options.certificateFile.isEmpty();
    m_rooms->keyPassword.setForTLS(hasKey ? std::optional(options.keyPassword.toUTF8()) : std::nullopt);
    m_rooms->demands.noticeTLSTrust(m_rooms->tls.getDescription());
}

void CNetRequest::setSSHOptions(const CSSHOptions& options)
{
    m_rooms->ssh.set(options);
    const bool hasKey = !options.privateKeyFile.isEmpty();
    m_rooms->keyPassword.setForSSH(hasKey ? std::optional(options.passphrase.toUTF8()) : std::nullopt);
    m_rooms->demands.noticeSSHTrust(m_rooms->ssh.getDescription());
}

} // namespace norla
