#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetHeaders.h"
#include "norla/http/CFormData.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using norla::CFormData;

/// Does something once when it is read.
class CDisturbingStream : public kx::CBufferStream {
public:
    explicit CDisturbingStream(std::function<void()> action)
        : m_action(std::move(action))
    {
        const std::string bytes(1U << 18, '-');
        write(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
        seek(0);
    }

    int read(unsigned char* buffer, int size) override
    {
        if (m_action && getPosition() > 0)
            std::exchange(m_action, nullptr)();
        return kx::CBufferStream::read(buffer, size);
    }

private:
    std::function<void()> m_action;
};

class CNetRequestFormsTest : public CRequestFixture {
protected:
    fs::path path() const { return m_folder.path() / "file"; }

    CFormData::Path write(const std::string& bytes) const
    {
        return CFormData::Path::fromBytes(m_folder.write("file", bytes).native());
    }

    size_t formSize() const { return static_cast<size_t>(m_form->getLength()); }

    /// What is sent of the form.
    std::string formBytes()
    {
        std::vector<unsigned char> bytes(formSize());
        m_form->seek(0);
        m_form->read(bytes.data(), static_cast<int>(bytes.size()), {});
        return {bytes.begin(), bytes.end()};
    }

    std::string typeLine() const { return "\r\nContent-Type: " + m_form->getContentType().toLatin1() + "\r\n"; }

    const support::CTemporaryFolder m_folder;
    const kx::P<CFormData> m_form = kx::newObj<CFormData>();
};

TEST_F(CNetRequestFormsTest, givesWayToATextThatIsSetAsABody)
{
    m_form->addText("name", "text");
    server().onConnection().readHead().readBytes(5).send(ok(""));
    request().setFormData(m_form.get());
    request().setOptionString(CURLOPT_POSTFIELDS, "other");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\nother"));
    EXPECT_EQ(received().find("multipart"), std::string::npos);
}

TEST_F(CNetRequestFormsTest, givesWayToAnAddressThatIsSetAsABody)
{
    m_form->addText("name", "text");
    server().onConnection().readHead().readBytes(5).send(ok(""));
    request().setFormData(m_form.get());
    std::string body = std::string("other") + '\0' + std::string(1000, 'x');
    request().setOptionPtr(CURLOPT_POSTFIELDS, body.data());
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\nother"));
    EXPECT_EQ(received().find("multipart"), std::string::npos);
}

TEST_F(CNetRequestFormsTest, postsAFormWithItsLengthAndType)
{
    m_form->addText("name", "text");
    server().onConnection().readHead().readBytes(formSize()).send(ok(""));
    request().setFormData(m_form.get());
    performPath();
    EXPECT_TRUE(received().starts_with("POST / HTTP/1.1\r\n"));
    EXPECT_NE(received().find("\r\nContent-Length: " + std::to_string(formSize()) + "\r\n"), std::string::npos);
    EXPECT_NE(received().find(typeLine()), std::string::npos);
    EXPECT_TRUE(received().ends_with("\r\n\r\n" + formBytes()));
}

TEST_F(CNetRequestFormsTest, sendsItsOwnTypeInPlaceOfTheCallers)
{
    server().onConnection().readHead().readBytes(formSize()).send(ok(""));
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("content-type", "text/plain");
    request().setCustomHTTPHeaders(headers.get());
    request().setFormData(m_form.get());
    performPath();
    EXPECT_NE(received().find(typeLine()), std::string::npos);
    EXPECT_EQ(received().find("text/plain"), std::string::npos);
}

TEST_F(CNetRequestFormsTest, sendsAFormOfUnknownLengthInChunks)
{
    mkfifo(path().c_str(), 0600);
    std::thread writer([this] { std::ofstream(path()) << "through"; });
    m_form->addFile("file", CFormData::Path::fromBytes(path().native()));
    server().onConnection().readHead().readUntil("\r\n0\r\n\r\n").send(ok(""));
    request().setFormData(m_form.get());
    performPath();
    writer.join();
    EXPECT_NE(received().find("\r\nTransfer-Encoding: chunked\r\n"), std::string::npos);
    EXPECT_NE(received().find("through"), std::string::npos);
}

TEST_F(CNetRequestFormsTest, sendsTheFormAgainToWhereItIsRedirected)
{
    m_form->addFile("file", write("0123456789"));
    server()
        .onConnection()
        .readHead()
        .readBytes(formSize())
        .send("HTTP/1.1 308 There\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .readBytes(formSize())
        .send(ok(""));
    request().setFormData(m_form.get());
    performPath();
    EXPECT_NE(received().find(formBytes() + "POST /there HTTP/1.1\r\n"), std::string::npos);
    EXPECT_TRUE(received().ends_with("\r\n\r\n" + formBytes()));
}

TEST_F(CNetRequestFormsTest, sendsTheSameFormInEveryTransfer)
{
    m_form->addFile("file", write("0123456789"));
    server()
        .onConnection()
        .readHead()
        .readBytes(formSize())
        .send(ok("one"))
        .readHead()
        .readBytes(formSize())
        .send(ok("two"));
    request().setFormData(m_form.get());
    performPath();
    performPath();
    EXPECT_EQ(body(), "two");
    EXPECT_TRUE(received().ends_with("\r\n\r\n" + formBytes()));
}

TEST_F(CNetRequestFormsTest, endsWithTheFileThatVanishesBeforeItsTurn)
{
    m_form->addStream("stream", kx::newObj<CDisturbingStream>([this] { fs::remove(path()); }).get());
    m_form->addFile("file", write("0123456789"));
    server().onConnection().readHead().readToEnd();
    request().setFormData(m_form.get());
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "The file '" + kx::String::fromUTF8(path().native()) + "' cannot be read: No such file or directory.");
    expectGoodTransfer();
}

TEST_F(CNetRequestFormsTest, endsWithTheFileThatGrowsBeforeItsTurn)
{
    m_form->addStream("stream", kx::newObj<CDisturbingStream>([this] { write("0123456789+"); }).get());
    m_form->addFile("file", write("0123456789"));
    server().onConnection().readHead().readToEnd();
    request().setFormData(m_form.get());
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "The file '" + kx::String::fromUTF8(path().native())
            + "' has changed since it was added to the form: it had 10 bytes and has 11.");
    EXPECT_EQ(received().find("0123456789"), std::string::npos);
    expectGoodTransfer();
}

TEST_F(CNetRequestFormsTest, sendsNoFormAfterNull)
{
    answer(ok(""));
    request().setFormData(m_form.get());
    request().setFormData(nullptr);
    performPath();
    EXPECT_TRUE(received().starts_with("GET / HTTP/1.1\r\n"));
    EXPECT_EQ(received().find("Content-"), std::string::npos);
}

TEST_F(CNetRequestFormsTest, sendsNoFormAfterAReset)
{
    answer(ok(""));
    request().setFormData(m_form.get());
    request().reset();
    performPath();
    EXPECT_TRUE(received().starts_with("GET / HTTP/1.1\r\n"));
    EXPECT_EQ(received().find("Content-"), std::string::npos);
}

} // namespace
