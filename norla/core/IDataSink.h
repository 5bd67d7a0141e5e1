#pragma once

#include "kx/base/IBase.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"

namespace norla {

/// Takes a response body, block by block.
class KX_EXPORT IDataSink : public virtual kx::IBase {
public:
    using HeaderMap = kx::TMap<kx::String, kx::String>;

    /// A transfer begins, the first one or another: for most sinks what an earlier one has written is void. Does
    /// nothing unless a sink says otherwise. What it throws is what resetForPerform() throws.
    virtual void begin() {}

    /// Takes a block; what it returns (the bytes taken) is not looked at. Throwing a std::exception ends the transfer
    /// with that error.
    /// @param size 0 or more
    /// @param responseCode HTTP status; 0 when it cannot be read, -1 for other protocols
    /// @param responseHeaders lower-case name to value
    virtual int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) = 0;

    /// The transfer has succeeded, with all blocks that there are, which may be none. Does nothing unless a sink says
    /// otherwise. What it throws is the error of the transfer. The code and the headers are those of write().
    virtual void end(int /*responseCode*/, const HeaderMap& /*responseHeaders*/) {}

    /// Whether begin() makes void what was written before. A transfer of which something came is tried again only with
    /// such a sink (CRetryPolicy). False unless a sink says otherwise: then what came first would stay.
    virtual bool canBeginAgain() const { return false; }
};

} // namespace norla
