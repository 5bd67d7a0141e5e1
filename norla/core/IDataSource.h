#pragma once

#include "kx/base/IBase.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"

namespace norla {

/// Gives the body to be sent, block by block. Throwing a std::exception from any operation ends the transfer with that
/// error.
class KX_EXPORT IDataSource : public virtual kx::IBase {
public:
    using HeaderMap = kx::TMap<kx::String, kx::String>;

    /// Fills the buffer with at most `size` bytes.
    /// @param responseHeaders of what the server has answered so far
    /// @return how many; 0 at the end
    virtual int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) = 0;

    /// In bytes; -1 when unknown.
    virtual long long getLength() = 0;

    /// Goes on at that many bytes from the start: before a transfer, and when a redirect or an authentication makes
    /// libcurl send the body again.
    virtual void seek(long long position) = 0;
    virtual long long getPosition() = 0;
};

} // namespace norla
