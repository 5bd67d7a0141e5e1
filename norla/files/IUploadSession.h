#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CNetRequest.h"
#include "norla/files/CFileTransfer.h"
#include "norla/pool/CTransferPool.h"

#include <functional>

namespace norla {

/// What an upload offers to the way that its file takes. Used on the thread of CFileUpload::run() alone. Of a cancelled
/// upload what performs or waits throws the error with which that ends.
class IUploadSession {
public:
    virtual ~IUploadSession() = default;

    /// The file as it was when run() began: a change throws before its last byte is given away.
    virtual CNetRequest::IDataSource& getSource() = 0;
    virtual const CNetRequest::Path& getPath() = 0;

    /// @throws kx::CError when the file has changed; hasChanged() from then on
    virtual void requireUnchanged() = 0;
    virtual bool hasChanged() = 0;

    virtual CTransferPool& getPool() = 0;

    /// Performs a request that was prepared, once, in the pool. Blocks.
    /// @param isBody whether its body is the file, from the source: a pause ends it, and progress is told
    /// @return the error with which it ended, null after a success
    virtual kx::P<kx::CError> perform(CNetRequest& request, bool isBody) = 0;

    /// Whether that was ended by a pause.
    virtual bool isInterrupted() = 0;

    /// Blocks for so long, or until a pause is over that comes meanwhile.
    virtual void waitOrPause(const kx::CTimeSpan& pause) = 0;

    /// Blocks while a pause is wanted.
    virtual void pauseIfWanted() = 0;

    /// As CFileSignals.
    virtual void setWishListener(std::function<void()> listener) = 0;

    virtual void setState(FileState state) = 0;

    /// What was told before is void.
    virtual void tellAnew() = 0;

    /// So many bytes more are there, which were not sent.
    virtual void tellFound(long long bytes) = 0;

    /// So many bytes are there now, with those that were found.
    virtual void tell(long long done) = 0;
};

} // namespace norla
