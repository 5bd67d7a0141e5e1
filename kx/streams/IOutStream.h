#pragma once

#include "kx/base/IBase.h"

namespace kx {

/// A place for bytes. Errors are thrown.
class KX_EXPORT IOutStream : public virtual IBase {
public:
    /// @return how many bytes were taken
    virtual int write(const unsigned char* data, int size) = 0;

    /// In bytes; -1 when unknown.
    virtual long long getLength() = 0;

    /// Continues at that many bytes from the start. @throws when the stream cannot seek
    virtual void seek(long long position) = 0;

    /// In bytes from the start.
    virtual long long getPosition() = 0;
};

} // namespace kx
