#include "norla/core/CFileSource.h"

#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <filesystem>
#include <functional>

namespace {

namespace fs = std::filesystem;
using norla::CFileSource;

/// Does something to the file once so many bytes of it have been read.
class CDisturbedSource : public CFileSource {
public:
    CDisturbedSource(const norla::CNetRequest::Path& path, long long at, std::function<void()> action)
        : CFileSource(path)
        , m_at(at)
        , m_action(std::move(action))
    {
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap& headers) override
    {
        if (m_action && getPosition() >= m_at)
            std::exchange(m_action, nullptr)();
        return CFileSource::read(buffer, size, headers);
    }

private:
    const long long m_at;
    std::function<void()> m_action;
};

class CFileSourceTest : public CRequestFixture {
protected:
    fs::path path() const { return m_folder.path() / "file"; }

    norla::CNetRequest::Path write(const std::string& bytes) const
    {
        m_folder.write("file", bytes);
        return norla::CNetRequest::Path::fromBytes(path().native());
    }

    void send(CFileSource& source)
    {
        request().setSendDataSource(&source);
        request().setSendDataSize(source.getLength());
        request().setHTTPMethod("PUT");
    }

    static bool endsWith(const std::string& text, const std::string& end) { return text.ends_with(end); }

    const support::CTemporaryFolder m_folder;
};

TEST_F(CFileSourceTest, sendsTheFileWithItsSize)
{
    server().onConnection().readHead().readBytes(10).send(ok(""));
    send(*kx::newObj<CFileSource>(write("0123456789")));
    performPath();
    EXPECT_NE(received().find("\r\nContent-Length: 10\r\n"), std::string::npos);
    EXPECT_TRUE(endsWith(received(), "\r\n\r\n0123456789"));
}

TEST_F(CFileSourceTest, sendsTheFileAgainToWhereItIsRedirected)
{
    server()
        .onConnection()
        .readHead()
        .readBytes(10)
        .send("HTTP/1.1 307 There\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .readBytes(10)
        .send(ok(""));
    send(*kx::newObj<CFileSource>(write("0123456789")));
    performPath();
    EXPECT_NE(received().find("0123456789PUT /there"), std::string::npos);
    EXPECT_TRUE(endsWith(received(), "0123456789"));
}

TEST_F(CFileSourceTest, namesTheFileThatBecomesShorterWhileItIsSent)
{
    const std::string megabyte(1 << 20, 'x');
    server().onConnection().readHead().readToEnd();
    send(*kx::newObj<CDisturbedSource>(write(megabyte), 1 << 19, [this] { fs::resize_file(path(), 1000); }));
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->getMessage().startsWith(
        "The file '" + kx::String::fromUTF8(path().native()) + "' cannot be read: it has ended behind "))
        << error->getMessage();
    expectGoodTransfer();
}

TEST_F(CFileSourceTest, sendsAFileThatIsRemovedMeanwhileToItsEnd)
{
    const size_t size = 1 << 18;
    server().onConnection().readHead().readBytes(size).send(ok(""));
    send(*kx::newObj<CDisturbedSource>(write(std::string(size, 'x')), 1, [this] { fs::remove(path()); }));
    performPath();
    EXPECT_TRUE(endsWith(received(), "\r\n\r\n" + std::string(size, 'x')));
}

TEST_F(CFileSourceTest, sendsAFileOfUnknownLengthInChunks)
{
    server().onConnection().readHead().readUntil("\r\n0\r\n\r\n").send(ok(""));
    const auto source = kx::newObj<CFileSource>("/proc/self/comm");
    EXPECT_EQ(source->getLength(), -1);
    send(*source);
    performPath();
    EXPECT_NE(received().find("\r\nTransfer-Encoding: chunked\r\n"), std::string::npos);
}

TEST_F(CFileSourceTest, namesTheFileThatIsNotThere)
{
    EXPECT_EQ(support::messageOf([] { kx::newObj<CFileSource>("/nowhere/file"); }),
        "The file '/nowhere/file' cannot be read: No such file or directory.");
}

} // namespace
