#include "kx/streams/CBufferStream.h"

#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Buffer = kx::CBufferStream::Buffer;

class CBufferStreamTest : public testing::Test {
protected:
    int write(kx::CBufferStream& stream, const std::string& text)
    {
        return stream.write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    }

    std::string read(kx::CBufferStream& stream, int size)
    {
        std::string text(static_cast<size_t>(size), '\0');
        text.resize(static_cast<size_t>(stream.read(reinterpret_cast<unsigned char*>(text.data()), size)));
        return text;
    }

    std::string content() const { return {reinterpret_cast<const char*>(m_buffer->getData()), m_buffer->getSize()}; }

    const kx::P<Buffer> m_buffer = kx::newObj<Buffer>();
};

TEST_F(CBufferStreamTest, readsWhatItWrote)
{
    kx::CBufferStream stream;
    EXPECT_EQ(write(stream, "hello"), 5);
    stream.seek(0);
    EXPECT_EQ(read(stream, 3), "hel");
    EXPECT_EQ(read(stream, 10), "lo");
    EXPECT_EQ(read(stream, 10), "");
}

TEST_F(CBufferStreamTest, writesIntoItsBuffer)
{
    kx::CBufferStream stream(m_buffer);
    write(stream, "hello");
    write(stream, " world");
    EXPECT_EQ(content(), "hello world");
    EXPECT_EQ(stream.getLength(), 11);
    EXPECT_EQ(stream.getPosition(), 11);
}

TEST_F(CBufferStreamTest, overwritesFromItsPositionOn)
{
    kx::CBufferStream stream(m_buffer);
    write(stream, "hello");
    stream.seek(1);
    write(stream, "ipp");
    EXPECT_EQ(content(), "hippo");
}

TEST_F(CBufferStreamTest, fillsAGapWithZeros)
{
    m_buffer->append(reinterpret_cast<const unsigned char*>("xxxxxx"), 6);
    m_buffer->setSize(1);
    kx::CBufferStream stream(m_buffer);
    stream.seek(3);
    write(stream, "y");
    EXPECT_EQ(content(), std::string("x\0\0y", 4));
}

TEST_F(CBufferStreamTest, readsNothingBeyondTheEnd)
{
    kx::CBufferStream stream(m_buffer);
    stream.seek(100);
    EXPECT_EQ(read(stream, 1), "");
    EXPECT_EQ(stream.getPosition(), 100);
}

TEST_F(CBufferStreamTest, refusesANegativePosition)
{
    kx::CBufferStream stream(m_buffer);
    try {
        stream.seek(-1);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "A stream cannot be set to the negative position -1.");
    }
}

TEST_F(CBufferStreamTest, movesNothingForASizeOfZeroOrLess)
{
    kx::CBufferStream stream(m_buffer);
    EXPECT_EQ(stream.write(nullptr, 0), 0);
    EXPECT_EQ(stream.write(nullptr, -1), 0);
    EXPECT_EQ(stream.read(nullptr, -1), 0);
    EXPECT_EQ(content(), "");
}

TEST_F(CBufferStreamTest, growsByItsFactor)
{
    kx::CBufferStream stream(m_buffer, 3.0);
    write(stream, std::string(100, 'x'));
    write(stream, "y");
    EXPECT_EQ(m_buffer->getCapacity(), 300u);
}

TEST_F(CBufferStreamTest, growsByWhatIsNeededWithASmallFactor)
{
    kx::CBufferStream stream(m_buffer, 0.5);
    write(stream, std::string(100, 'x'));
    write(stream, "y");
    EXPECT_EQ(m_buffer->getCapacity(), 101u);
}

struct CGrowthRow {
    const char* name;
    double growth;
};

class CUselessGrowthTest : public testing::TestWithParam<CGrowthRow> {};

TEST_P(CUselessGrowthTest, growsByWhatIsNeeded)
{
    const auto buffer = kx::newObj<Buffer>(size_t{100});
    const unsigned char byte = 0;
    kx::CBufferStream stream(buffer, GetParam().growth);
    stream.seek(100);
    stream.write(&byte, 1);
    EXPECT_EQ(buffer->getCapacity(), 101u);
}

INSTANTIATE_TEST_SUITE_P(All, CUselessGrowthTest,
    testing::ValuesIn(std::vector<CGrowthRow>{
        {"noNumber", std::numeric_limits<double>::quiet_NaN()},
        {"infinite", std::numeric_limits<double>::infinity()},
        {"beyondEveryMemory", 1e300},
        {"negative", -2},
        {"zero", 0},
    }),
    [](const testing::TestParamInfo<CGrowthRow>& row) { return row.param.name; });

TEST_F(CBufferStreamTest, borrowsNoTemporaryBuffer)
{
    EXPECT_TRUE((std::is_constructible_v<kx::CBufferStream, const Buffer&>));
    EXPECT_FALSE((std::is_constructible_v<kx::CBufferStream, Buffer>));
}

// So much growth moves the buffer, and something else gets its old place.
TEST_F(CBufferStreamTest, writesWhatLiesInItsOwnBuffer)
{
    constexpr double farGrowth = 1 << 20;
    kx::CBufferStream stream(m_buffer, farGrowth);
    const std::string text = "what is copied behind itself, when there is no room for it yet";
    write(stream, text);
    stream.write(m_buffer->getData(), static_cast<int>(text.size()));
    EXPECT_EQ(content(), text + text);
}

TEST_F(CBufferStreamTest, writesOverAPartOfWhatItWrites)
{
    kx::CBufferStream stream(m_buffer);
    write(stream, "abcdef");
    stream.seek(2);
    stream.write(m_buffer->getData(), 6);
    EXPECT_EQ(content(), "ababcdef");
}

TEST_F(CBufferStreamTest, readsABorrowedBuffer)
{
    Buffer borrowed;
    borrowed.append(reinterpret_cast<const unsigned char*>("abc"), 3);
    kx::CBufferStream stream(borrowed);
    EXPECT_EQ(stream.getLength(), 3);
    EXPECT_EQ(read(stream, 10), "abc");
}

TEST_F(CBufferStreamTest, cannotWriteToABorrowedBuffer)
{
    const Buffer borrowed;
    kx::CBufferStream stream(borrowed);
    EXPECT_THROW(write(stream, "x"), kx::CError);
}

TEST_F(CBufferStreamTest, refusesANullBuffer)
{
    EXPECT_THROW(kx::CBufferStream(kx::P<Buffer>()), kx::CInvalidArgError);
}

} // namespace
