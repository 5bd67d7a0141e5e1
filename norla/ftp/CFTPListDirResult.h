#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TBuffer.h"
#include "norla/ftp/CFTPDirEntry.h"

namespace norla {

/// A directory's listing, as a server sends it after MLSD. Immutable.
class KX_EXPORT CFTPListDirResult : public virtual kx::CBase {
public:
    /// Parses the listing, a line of facts each in UTF-8; empty lines are passed over.
    /// @throws kx::CError as CFTPDirEntry for the first line that it cannot read, or when the listing is not UTF-8
    explicit CFTPListDirResult(const kx::TBuffer<unsigned char>& data);
    ~CFTPListDirResult() override;

    /// In the server's order; with the directory itself and its parent, where the server lists them.
    const kx::TArray<kx::P<CFTPDirEntry>>& getEntries() const noexcept { return m_entries; }

private:
    kx::TArray<kx::P<CFTPDirEntry>> m_entries;
};

} // namespace norla
