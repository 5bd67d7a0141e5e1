#include "kx/containers/TBuffer.h"

#include "kx/base/P.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <sys/resource.h>

namespace {

using Bytes = kx::TBuffer<char>;

std::string textOf(const Bytes& buffer)
{
    return {buffer.getData(), buffer.getSize()};
}

TEST(TBufferTest, startsEmpty)
{
    const Bytes buffer;
    EXPECT_EQ(buffer.getSize(), 0u);
    EXPECT_EQ(buffer.getCapacity(), 0u);
    EXPECT_EQ(buffer.getData(), nullptr);
}

TEST(TBufferTest, keepsItsElementsWhenItGrows)
{
    Bytes buffer;
    buffer.append("abc", 3);
    buffer.setSize(1 << 20);
    EXPECT_EQ(std::string(buffer.getData(), 3), "abc");
}

TEST(TBufferTest, keepsItsAllocationWhenItShrinks)
{
    Bytes buffer(size_t{1000});
    const char* const data = buffer.getData();
    buffer.setSize(0);
    EXPECT_EQ(buffer.getCapacity(), 1000u);
    buffer.setSize(1000);
    EXPECT_EQ(buffer.getData(), data);
}

TEST(TBufferTest, doesNotTouchWhatItAdds)
{
    Bytes buffer;
    buffer.append("abcdef", 6);
    buffer.setSize(1);
    buffer.setSize(6);
    EXPECT_EQ(textOf(buffer), "abcdef");
}

TEST(TBufferTest, reservesExactly)
{
    Bytes buffer;
    buffer.reserve(100);
    EXPECT_EQ(buffer.getCapacity(), 100u);
    EXPECT_EQ(buffer.getSize(), 0u);
    buffer.reserve(10);
    EXPECT_EQ(buffer.getCapacity(), 100u);
}

TEST(TBufferTest, doublesAtLeastWhenItAppends)
{
    Bytes buffer(size_t{100});
    buffer.append("x", 1);
    EXPECT_EQ(buffer.getCapacity(), 200u);
}

TEST(TBufferTest, appendsNothing)
{
    Bytes buffer;
    buffer.append(nullptr, 0);
    EXPECT_EQ(buffer.getSize(), 0u);
}

TEST(TBufferTest, appendsAPartOfItself)
{
    Bytes buffer;
    buffer.append("abc", 3);
    for (int i = 0; i < 10; ++i)
        buffer.append(buffer.getData() + 1, 2);
    EXPECT_EQ(textOf(buffer), "abcbcbcbcbcbcbcbcbcbcbc");
}

// AddressSanitizer knows when a copy is not made for places that overlap.
TEST(TBufferTest, appendsWhatLiesBehindItsOwnEnd)
{
    Bytes buffer;
    buffer.append("abcdefgh", 8);
    buffer.setSize(1);
    buffer.append(buffer.getData() + 2, 4);
    EXPECT_EQ(textOf(buffer), "acdef");
}

TEST(TBufferTest, countsInElements)
{
    kx::TBuffer<int> numbers;
    const int values[] = {1, 2, 3};
    numbers.append(values, 3);
    EXPECT_EQ(numbers.getSize(), 3u);
    EXPECT_EQ(numbers.getData()[2], 3);
}

TEST(TBufferTest, runsOutOfMemoryForHugeSizes)
{
    kx::TBuffer<int> numbers;
    EXPECT_THROW(numbers.setSize(std::numeric_limits<size_t>::max()), std::bad_alloc);
    EXPECT_THROW(numbers.reserve(std::numeric_limits<size_t>::max() / 2), std::bad_alloc);
    EXPECT_EQ(numbers.getSize(), 0u);
    const int one = 1;
    volatile size_t most = std::numeric_limits<size_t>::max(); // unknown to the compiler, which would warn of the copy
    numbers.append(&one, 1);
    EXPECT_THROW(numbers.append(&one, most), std::bad_alloc);
    EXPECT_EQ(numbers.getSize(), 1u);
}

TEST(TBufferTest, isCopied)
{
    Bytes buffer;
    buffer.append("abc", 3);
    const Bytes copy(buffer);
    buffer.getData()[0] = 'x';
    EXPECT_EQ(textOf(copy), "abc");
}

TEST(TBufferTest, isAssigned)
{
    Bytes buffer;
    buffer.append("abc", 3);
    Bytes other;
    other.append("another", 7);
    other = buffer;
    EXPECT_EQ(textOf(other), "abc");
    const Bytes& same = other;
    other = same;
    EXPECT_EQ(textOf(other), "abc");
}

// The memory of AddressSanitizer and ThreadSanitizer does not fit into the limit.
#if !defined(NORLA_TEST_MEMORY_IS_SANITIZED)

[[noreturn]] void assignWithoutMemory()
{
    constexpr size_t size = size_t{1} << 30; // never touched
    const Bytes other(size);
    Bytes buffer;
    buffer.append("abc", 3);
    const rlimit limit{size, size}; // less than is in use already
    setrlimit(RLIMIT_AS, &limit);
    try {
        buffer = other;
    } catch (const std::bad_alloc&) {
        std::exit(textOf(buffer) == "abc" ? 0 : 1);
    }
    std::exit(2);
}

TEST(TBufferDeathTest, keepsItsElementsWithoutMemoryForOthers)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(assignWithoutMemory(), testing::ExitedWithCode(0), "");
}

#endif

} // namespace
