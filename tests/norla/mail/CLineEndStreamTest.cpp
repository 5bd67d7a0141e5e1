#include "norla/mail/CLineEndStream.h"

#include "kx/base/CInvalidArgError.h"
#include "tests/norla/mail/mimeBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using norla::CLineEndStream;

/// Gives at most so many bytes at a time.
class CStreamInPieces : public kx::CBufferStream {
public:
    CStreamInPieces(const std::string& bytes, int most)
        : CBufferStream(bufferOf(bytes))
        , m_most(most)
    {
    }

    int read(unsigned char* buffer, int size) override
    {
        m_asked = std::max(m_asked, size);
        return CBufferStream::read(buffer, std::min(size, m_most));
    }

    int m_asked = 0;

private:
    const int m_most;
};

std::string readAll(kx::IInStream& stream, int size)
{
    std::string all;
    std::string block(static_cast<size_t>(size), '\0');
    while (const int count = stream.read(reinterpret_cast<unsigned char*>(block.data()), size))
        all.append(block, 0, static_cast<size_t>(count));
    return all;
}

std::string sent(const std::string& message, int sourceBlock = 1 << 20, int block = 1 << 20)
{
    return readAll(*kx::newObj<CLineEndStream>(kx::newObj<CStreamInPieces>(message, sourceBlock).get()), block);
}

/// The same, from a message that is in memory as a whole.
std::string expected(const std::string& message)
{
    std::string lines;
    for (size_t i = 0; i < message.size(); ++i) {
        if (message[i] == '\r' && i + 1 < message.size() && message[i + 1] == '\n')
            ++i;
        lines += message[i] == '\r' || message[i] == '\n' ? "\r\n" : std::string(1, message[i]);
    }
    return lines;
}

TEST(CLineEndStreamTest, leavesCRLFAsItIs)
{
    std::string message;
    for (int byte = 0; byte < 256; ++byte)
        message += byte == '\r' || byte == '\n' ? "\r\n" : std::string(1, static_cast<char>(byte));
    message += "\r\n\r\n.\r\n";
    EXPECT_EQ(sent(message), message);
    EXPECT_EQ(sent(""), "");
    EXPECT_EQ(sent("no line end"), "no line end");
}

TEST(CLineEndStreamTest, completesBareLineEnds)
{
    EXPECT_EQ(sent("a\nb"), "a\r\nb");
    EXPECT_EQ(sent("a\rb"), "a\r\nb");
    EXPECT_EQ(sent("\n"), "\r\n");
    EXPECT_EQ(sent("\r"), "\r\n");
    EXPECT_EQ(sent("end\r"), "end\r\n");
    EXPECT_EQ(sent("\n\r"), "\r\n\r\n");
    EXPECT_EQ(sent("\r\r\n"), "\r\n\r\n");
    EXPECT_EQ(sent("\r\n\n"), "\r\n\r\n");
    EXPECT_EQ(sent("\n\n\r\r"), "\r\n\r\n\r\n\r\n");
}

TEST(CLineEndStreamTest, doesNotCareHowItIsRead)
{
    const std::string message = "a\r\n\nb\r\rc\r\n\r\nd\n\re\r";
    for (const int sourceBlock : {1, 2, 3, 5}) {
        for (const int block : {1, 2, 3, 5})
            EXPECT_EQ(sent(message, sourceBlock, block), expected(message)) << sourceBlock << ' ' << block;
    }
}

TEST(CLineEndStreamTest, doesNotCareWhereItsOwnBlocksEnd)
{
    for (int before = 16380; before < 16390; ++before) {
        for (const std::string end : {"\r\n", "\n", "\r", "\r\r\n", "\n\r"}) {
            const std::string message = std::string(static_cast<size_t>(before), 'x') + end + "y";
            EXPECT_TRUE(sent(message) == expected(message)) << before;
        }
    }
}

TEST(CLineEndStreamTest, isRightAboutRandomMessages)
{
    std::mt19937 random(20261122);
    const auto below = [&random](int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random); };
    for (int i = 0; i < 2000; ++i) {
        std::string message;
        for (int left = below(60); left > 0; --left)
            message += "\r\n.x"[below(4)];
        EXPECT_EQ(sent(message, 1 + below(7), 1 + below(7)), expected(message));
    }
}

TEST(CLineEndStreamTest, startsAnewAtItsStart)
{
    const auto stream = kx::newObj<CLineEndStream>(kx::newObj<CStreamInPieces>("\nab\rc", 2).get());
    for (int count = 1; count < 9; ++count) {
        stream->seek(0);
        EXPECT_EQ(stream->getPosition(), 0);
        std::string block(static_cast<size_t>(count), '\0');
        stream->read(reinterpret_cast<unsigned char*>(block.data()), count);
        stream->seek(0);
        EXPECT_EQ(readAll(*stream, 3), "\r\nab\r\nc") << count;
        EXPECT_EQ(stream->getPosition(), 7);
    }
    EXPECT_THROW(stream->seek(1), kx::CError);
    EXPECT_EQ(stream->getLength(), -1);
}

TEST(CLineEndStreamTest, knowsWhenItsSourceDoesNotStandAtTheStart)
{
    const auto source = kx::newObj<CStreamInPieces>("abc", 10);
    source->seek(2);
    const auto stream = kx::newObj<CLineEndStream>(source.get());
    EXPECT_EQ(stream->getPosition(), 2);
    stream->seek(0);
    EXPECT_EQ(readAll(*stream, 10), "abc");
}

TEST(CLineEndStreamTest, readsNoMoreThanABlockAhead)
{
    const auto source = kx::newObj<CStreamInPieces>(std::string(1 << 20, 'x'), 1 << 20);
    const auto stream = kx::newObj<CLineEndStream>(source.get());
    std::string block(1 << 18, '\0');
    EXPECT_EQ(stream->read(reinterpret_cast<unsigned char*>(block.data()), 1 << 18), 1 << 18);
    EXPECT_LE(source->m_asked, 1 << 16);
    EXPECT_LE(source->getPosition(), (1 << 18) + (1 << 16));
}

TEST(CLineEndStreamTest, refusesNull)
{
    EXPECT_THROW(kx::newObj<CLineEndStream>(nullptr), kx::CInvalidArgError);
}

} // namespace
