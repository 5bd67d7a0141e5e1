#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/log/log.h"
#include "norla/files/CFileProgress.h"
#include "norla/pool/IExecutor.h"

#include <exception>
#include <functional>

namespace norla {

/// Calls who wants to know of it, there where he wants to be called. What he throws on this thread goes on.
/// @param executor null: on this thread @param failure what to log of a throw elsewhere
inline void tellProgressTo(const std::function<void(const CFileProgress&)>& tell, const kx::P<IExecutor>& executor,
    const CFileProgress& progress, const kx::String& failure)
{
    if (!tell)
        return;
    if (!executor) {
        tell(progress);
        return;
    }
    executor->execute([tell, progress, failure] {
        try {
            tell(progress);
        } catch (const std::exception& error) {
            kx::logError(error, failure, kx::String());
        } catch (...) { // it would end the thread that runs it
            kx::logError(kx::CError("It is no std::exception."), failure, kx::String());
        }
    });
}

} // namespace norla
