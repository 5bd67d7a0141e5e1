#pragma once

#include "kx/base/IBase.h"

namespace kx {

/// A source of bytes. Errors are thrown.
class KX_EXPORT IInStream : public virtual IBase {
public:
    /// Reads at most `size` bytes.
    /// @return how many were read; 0 at the end
    virtual int read(unsigned char* buffer, int size) = 0;

    /// In bytes; -1 when unknown.
    virtual long long getLength() = 0;

    /// Continues at that many bytes from the start. @throws when the stream cannot seek
    virtual void seek(long long position) = 0;

    /// In bytes from the start.
    virtual long long getPosition() = 0;
};

} // namespace kx
