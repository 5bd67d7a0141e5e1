#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/ftp/CFTPDirEntry.h"

namespace norla {

class CNetStringList;

/// What a server says about one path after MLST. Immutable.
class KX_EXPORT CFTPGetInfoResult : public virtual kx::CBase {
public:
    /// Finds the line of facts behind the last "250-" line. Lines behind earlier ones, which a server says on the way
    /// to a directory (its message, for example), need not be facts. A line of facts may begin with "250-" itself; one
    /// that does and has no facts begins a reply.
    /// @param lines the reply lines of the transfer, as CNetRequest::getResponseInfo() gives them
    /// @throws kx::CError "Invalid response to FTP MLST request (no info line found)." with all lines in the property
    /// "response"; as CFTPDirEntry for the first line that cannot be read and is followed by none that can
    explicit CFTPGetInfoResult(const CNetStringList& lines);
    ~CFTPGetInfoResult() override;

    /// Never null.
    kx::P<CFTPDirEntry> getEntry() const { return m_entry; }

private:
    kx::P<CFTPDirEntry> m_entry;
};

} // namespace norla
