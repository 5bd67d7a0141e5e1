// A message as it is sent, beside a pass over the whole of it. The first bytes say in which pieces it is read.
#include "kx/streams/CBufferStream.h"
#include "norla/mail/CLineEndStream.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

/// Gives the message in pieces.
class CPieces : public kx::CBufferStream {
public:
    CPieces(const kx::P<Buffer>& buffer, int most)
        : CBufferStream(buffer)
        , m_most(most)
    {
    }

    int read(unsigned char* buffer, int size) override { return CBufferStream::read(buffer, std::min(size, m_most)); }

private:
    const int m_most;
};

std::string reference(std::string_view message)
{
    std::string lines;
    for (size_t i = 0; i < message.size(); ++i) {
        if (message.substr(i).starts_with("\r\n"))
            ++i;
        if (message[i] == '\r' || message[i] == '\n')
            lines += "\r\n";
        else
            lines += message[i];
    }
    return lines;
}

std::string readAll(kx::IInStream& stream, int size)
{
    std::string all;
    std::string block(static_cast<size_t>(size), '\0');
    while (const int count = stream.read(reinterpret_cast<unsigned char*>(block.data()), size)) {
        all.append(block, 0, static_cast<size_t>(count));
        require(stream.getPosition() == static_cast<long long>(all.size()), "the position is what was read");
    }
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3)
        return 0;
    const int sourcePiece = 1 + data[0];
    const int piece = 1 + data[1];
    const int before = data[2];
    const std::string_view message(reinterpret_cast<const char*>(data) + 3, size - 3);
    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    buffer->append(data + 3, size - 3);
    const auto stream = kx::newObj<norla::CLineEndStream>(kx::newObj<CPieces>(buffer, sourcePiece).get());
    std::string first(static_cast<size_t>(before), '\0');
    stream->read(reinterpret_cast<unsigned char*>(first.data()), before);
    stream->seek(0);
    const std::string sent = readAll(*stream, piece);
    require(sent == reference(message), "every line end is CRLF, and nothing else is changed");
    require(reference(sent) == sent, "what has CRLF alone stays as it is");
    return 0;
}
