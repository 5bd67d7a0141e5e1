// How the two sides of a connection prove who they are.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

void CNetRequest::setTLSOptions(const CTLSOptions& options)
{
    m_rooms->tls.set(options);
    const bool hasKey = !options.certificateFile.isEmpty();
    m_rooms->keyPassword.setForTLS(hasKey ? std::optional(options.keyPassword.toUTF8()) : std::nullopt);
    m_rooms->demands.noticeTrust(m_rooms->tls.getDescription());
}

} // namespace norla
