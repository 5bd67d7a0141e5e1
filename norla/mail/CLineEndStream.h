#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/streams/IInStream.h"

#include <array>

namespace norla {

/// A message as it goes over the wire: what another stream gives, with CRLF for every line end (RFC 5321 section
/// 2.3.8). A line feed without a carriage return before it and a carriage return without a line feed behind it become
/// CRLF; everything else passes byte for byte. libcurl doubles the dots at the start of lines behind CRLF only, and
/// there are servers that take a bare line feed for a line end, too: to them "\n.\r\n" would be the end of the message,
/// and what follows commands.
///
/// Reads ahead by one block at most, whatever the size of the message. Used by one thread at a time.
class CLineEndStream : public kx::CBase, public virtual kx::IInStream {
public:
    /// @param source not null; a reference is kept. It is nobody else's to read until the message was sent
    explicit CLineEndStream(kx::IInStream* source);
    ~CLineEndStream() override;

    /// @throws what the source throws
    int read(unsigned char* buffer, int size) override;

    /// Unknown: -1.
    long long getLength() override;

    /// Back to the start. @throws kx::CError for any other position; what the source throws
    void seek(long long position) override;

    /// Of what was read here, which may be more than what the source has given; where the source stands, before the
    /// first byte.
    long long getPosition() override;

private:
    bool fill();
    void skipLineFeed();
    int copyText(unsigned char* buffer, int size);
    int startLineEnd(unsigned char* buffer);
    void restart();

    const kx::P<kx::IInStream> m_source;
    std::array<unsigned char, 16384> m_block;
    int m_next = 0; // of the block
    int m_end = 0;
    bool m_isLineFeedOwed = false;    // the carriage return before it was read
    bool m_isLineFeedSkipped = false; // one that comes next belongs to a carriage return
    long long m_position = 0;
};

} // namespace norla
