// Counts what the library allocates while a body passes through it, and lets an allocation fail. A program of its own,
// because it replaces operator new.
#include "norla/core/CCookieJar.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local long allocations = 0;
thread_local bool nextOneFails = false;

} // namespace

void* operator new(size_t size)
{
    ++allocations;
    if (std::exchange(nextOneFails, false))
        throw std::bad_alloc();
    if (void* const block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

namespace {

/// Notes at each call how much had been allocated until then.
class CNotingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CNotingSink() { m_notes.reserve(100'000); }

    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_notes.push_back(allocations);
        return size;
    }

    std::vector<long> m_notes;
};

class CCountingSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    CCountingSource() { m_notes.reserve(100'000); }

    int read(unsigned char*, int size, const norla::CNetRequest::HeaderMap&) override
    {
        m_notes.push_back(allocations);
        const int given = static_cast<int>(std::min<long long>(size, m_size - m_position));
        m_position += given;
        return given;
    }
    long long getLength() override { return m_size; }
    void seek(long long position) override { m_position = position; }
    long long getPosition() override { return m_position; }

    const long long m_size = 4 << 20;
    long long m_position = 0;
    std::vector<long> m_notes;
};

class CErrorListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest*, const kx::CError* error) override
    {
        m_error = error ? error->getMessage() : "success";
    }

    kx::String m_error;
};

class AllocationTest : public CRequestFixture {};

TEST_F(AllocationTest, isNoneForABlockOfBody)
{
    const auto sink = kx::newObj<CNotingSink>();
    constexpr size_t blockCount = 64;
    const std::string block(64 * 1024, 'x');
    answer("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(blockCount * block.size()) + "\r\n\r\n")
        .sendRepeated(block, blockCount);
    request().setReceiveDataSink(sink.get());
    performPath();
    ASSERT_GE(sink->m_notes.size(), 100u);
    EXPECT_EQ(sink->m_notes.front(), sink->m_notes.back());
}

TEST_F(AllocationTest, isNoneForABlockThatIsSent)
{
    const auto source = kx::newObj<CCountingSource>();
    server().onConnection().readHead().readBytes(static_cast<size_t>(source->m_size)).send(ok(""));
    request().setSendDataSource(source.get());
    request().setSendDataSize(source->m_size);
    request().setHTTPMethod("PUT");
    performPath();
    ASSERT_GE(source->m_notes.size(), 10u);
    EXPECT_EQ(source->m_notes.front(), source->m_notes.back());
}

TEST_F(AllocationTest, isNoneForCookiesBeyondTheirLimit)
{
    const support::CTemporaryFolder folder;
    const auto jar = kx::newObj<norla::CCookieJar>();
    std::string lines;
    for (int i = 0; i <= 10'000; ++i)
        lines += "a.test\tFALSE\t/\tFALSE\t0\tn" + std::to_string(i) + "\tx\n";
    const auto allocationsFor = [&](const std::string& content) {
        const auto path = norla::CCookieJar::Path::fromBytes(folder.write("cookies", content).native());
        const long before = allocations;
        EXPECT_THROW(jar->load(path), kx::CError);
        return allocations - before;
    };
    const long once = allocationsFor(lines);
    EXPECT_LT(allocationsFor(lines + lines + lines + lines), once + 1000);
}

TEST_F(AllocationTest, failsAndTheListenerIsToldThatTheEndCannotBeRecorded)
{
    const auto listener = kx::newObj<CErrorListener>();
    request().setURL(kx::String::fromUTF8(server().url()));
    request().setDoneListener(listener.get());
    request().setAsyncInfo(false, CURLE_OK);
    nextOneFails = true;
    EXPECT_THROW(request().setAsyncInfo(true, CURLE_OK), std::bad_alloc);
    EXPECT_EQ(listener->m_error, "std::bad_alloc");
}

} // namespace
