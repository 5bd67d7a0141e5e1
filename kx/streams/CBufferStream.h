#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TBuffer.h"
#include "kx/streams/IInStream.h"
#include "kx/streams/IOutStream.h"

namespace kx {

/// Reads and writes a buffer in memory, with one position for both. What the buffer holds is what the stream holds:
/// somebody else may change the buffer between two operations.
class KX_EXPORT CBufferStream : public CBase, public virtual IInStream, public virtual IOutStream {
public:
    using Buffer = TBuffer<unsigned char>;

    /// A stream over a new empty buffer.
    CBufferStream();

    /// Shares the buffer.
    /// @param growth how many times its size the buffer gets when it must grow; values below 1, what is no number and
    /// what no buffer can have count as 1
    explicit CBufferStream(P<Buffer> buffer, double growth = 2.0);

    /// Reads a buffer that the caller keeps alive at least as long as the stream; writing throws.
    explicit CBufferStream(const Buffer& borrowed);
    explicit CBufferStream(const Buffer&& temporary) = delete; ///< would be gone before the stream

    ~CBufferStream() override;

    int read(unsigned char* buffer, int size) override;

    /// Overwrites from the position on and grows the buffer past its end. A gap left by seeking beyond the end is
    /// filled with zeros.
    /// @param data may lie in the stream's own buffer
    int write(const unsigned char* data, int size) override;

    long long getLength() override;

    /// @throws CError for a negative position; one beyond the end is allowed
    void seek(long long position) override;
    long long getPosition() override;

private:
    void growTo(size_t end);

    const P<Buffer> m_written;    // null for a borrowed buffer
    const Buffer* const m_buffer; // the one in use, never null
    double m_growth = 1;
    size_t m_position = 0;
};

} // namespace kx
