#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "norla/files/CFileProgress.h"

#include <memory>

namespace norla {

class CFileSignals;

/// Where a file is. The last three are ends.
enum class FileState {
    Waiting,   ///< run() was not called yet
    Running,   ///< it is on its way, or a pause before another attempt is
    Paused,    ///< nothing moves until resume()
    Finishing, ///< all bytes are there: they are compared, synced and given their name
    Succeeded,
    Failed,
    Cancelled
};

/// A whole file on its way down or up, from its beginning to its one end. run() blocks; every other operation is for
/// any thread, returns at once, and does nothing behind the end.
class KX_EXPORT CFileTransfer : public kx::CBase {
public:
    CFileTransfer(const CFileTransfer&) = delete;
    CFileTransfer& operator=(const CFileTransfer&) = delete;
    ~CFileTransfer() override;

    /// Blocks until the file is whole at its place. Once for each object, which its caller keeps until then, also in
    /// callbacks; not in a callback on a pool's thread.
    /// @throws kx::CError naming the file or the server, and why; of the kind Cancelled behind cancel()
    /// (getErrorKind()); kx::CError when it was called before; what a callback of the program has thrown on this
    /// thread, as it is, which need not be a kx::CError
    void run();

    /// Ends it. What has come stays, to be resumed by another object, where the options say so.
    void cancel();

    /// Lets nothing move, as soon as the connections are closed; what has come is kept, and resume() goes on behind it
    /// where it can be proved to be of the same resource, or else anew.
    void pause();
    void resume();

    FileState getState() const noexcept;
    CFileProgress getProgress() const;

    /// What run() threw; null before, and behind a success.
    kx::P<kx::CError> getError() const;

protected:
    CFileTransfer();

    const std::shared_ptr<CFileSignals>& getSignals() const noexcept { return m_signals; }

private:
    virtual void transfer() = 0;

    const std::shared_ptr<CFileSignals> m_signals;
};

} // namespace norla
