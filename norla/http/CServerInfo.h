#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "kx/threads/CMutex.h"

namespace norla {

/// What has been learnt about one server: which parts of HTTP it is known to get wrong. Shared between the application
/// and the requests to that server (CNetRequest::setServerInfoToUpdate()). Any thread.
class KX_EXPORT CServerInfo : public virtual kx::CBase {
public:
    CServerInfo() = default;
    CServerInfo(const CServerInfo&) = delete;
    CServerInfo& operator=(const CServerInfo&) = delete;
    ~CServerInfo() override;

    /// The first Server header that was seen; empty before.
    kx::String getServerHeader() const;

    /// No server is known for it: always false.
    bool isGetBroken() const;

    /// No server is known for it: always false.
    bool isPutBroken() const;

    /// Whether ranged GET requests had better be avoided. Once true it stays true.
    bool areGetRangesBroken() const;

    /// Learns from the headers of a response, whose names are lower case. Only the first Server header counts.
    void updateFromHeaders(const kx::TMap<kx::String, kx::String>& headers);

private:
    mutable kx::CMutex m_mutex;
    kx::String m_serverHeader;
    bool m_getBroken = false;
    bool m_putBroken = false;
    bool m_getRangesBroken = false;
};

} // namespace norla
