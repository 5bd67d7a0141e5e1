#include "norla/http/CFormData.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "tests/norla/http/formJudge.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CFewDescriptors.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using norla::CFormData;
using Texts = std::vector<std::string>;

kx::P<CFormData::Buffer> bufferOf(std::string_view bytes)
{
    const auto buffer = kx::newObj<CFormData::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return buffer;
}

/// A stream that does not know its length, and may be unable to seek.
class CUnknownStream : public kx::CBufferStream {
public:
    using kx::CBufferStream::CBufferStream;
    long long getLength() override { return -1; }
};

/// A stream that ends before the length that it tells.
class CShortStream : public kx::CBufferStream {
public:
    using kx::CBufferStream::CBufferStream;
    long long getLength() override { return kx::CBufferStream::getLength() + 5; }
};

class CFormDataTest : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return m_folder.path() / name; }

    CFormData::Path write(const std::string& name, const std::string& bytes) const
    {
        return CFormData::Path::fromBytes(m_folder.write(name, bytes).native());
    }

    /// From where the form stands to its end.
    std::string read(int blockSize = 4096)
    {
        std::string all;
        std::vector<unsigned char> block(static_cast<size_t>(blockSize));
        for (int count = 0; (count = m_form->read(block.data(), blockSize, {})) > 0;)
            all.append(reinterpret_cast<const char*>(block.data()), static_cast<size_t>(count));
        return all;
    }

    kx::String readError()
    {
        return support::messageOf([this] { read(); });
    }

    Texts judge() { return judgeForm(m_form->getContentType().toLatin1(), read()); }

    kx::String nameOf(const std::string& file) const { return kx::String::fromUTF8(path(file).native()); }

    const support::CTemporaryFolder m_folder;
    const kx::P<CFormData> m_form = kx::newObj<CFormData>();
};

TEST_F(CFormDataTest, isWhatTheStandardShows)
{
    m_form->addText("title", "Holiday");
    m_form->addText("more", "text", {.fileName = "a.txt", .contentType = "text/plain"});
    const std::string boundary = m_form->getContentType().toLatin1().substr(30);
    EXPECT_EQ(read(),
        "--" + boundary + "\r\nContent-Disposition: form-data; name=\"title\"\r\n\r\nHoliday\r\n--" + boundary
            + "\r\nContent-Disposition: form-data; name=\"more\"; filename=\"a.txt\"\r\nContent-Type: text/plain"
              "\r\n\r\ntext\r\n--"
            + boundary + "--\r\n");
}

TEST_F(CFormDataTest, isOnlyItsEndWithoutParts)
{
    EXPECT_EQ(read(), "--" + m_form->getContentType().toLatin1().substr(30) + "--\r\n");
}

TEST_F(CFormDataTest, hasABoundaryOfItsOwn)
{
    EXPECT_EQ(m_form->getContentType().size(), 30U + 52U);
    EXPECT_NE(m_form->getContentType(), kx::newObj<CFormData>()->getContentType());
}

TEST_F(CFormDataTest, isReadByOthersAsItWasPutIn)
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    m_form->addText("text", L"Gr\u00fc\u00dfe\n\u20ac");
    m_form->addText("", "");
    m_form->addText("text", "again");
    m_form->addBuffer("bytes", bufferOf(bytes).get());
    m_form->addStream("stream", kx::newObj<kx::CBufferStream>(bufferOf("--\r\n--\r\n")).get(), {.fileName = "s"});
    m_form->addFile("file", write("a file.bin", bytes + bytes));
    m_form->addFile("photo", write("b", "jpeg"), {.fileName = L"\u00fc.jpg", .contentType = "image/jpeg"});
    EXPECT_EQ(judge(),
        Texts(
            {expectedPart({"text", "Gr\u00fc\u00dfe\n\u20ac"}), expectedPart({"", ""}), expectedPart({"text", "again"}),
                expectedPart({"bytes", bytes}), expectedPart({"stream", "--\r\n--\r\n", "s"}),
                expectedPart({"file", bytes + bytes, "a file.bin", "application/octet-stream"}),
                expectedPart({"photo", "jpeg", "\u00fc.jpg", "image/jpeg"})}));
}

TEST_F(CFormDataTest, escapesNamesAsBrowsersDo)
{
    m_form->addText("a\"; filename=\"x", "1");
    m_form->addText("b\r\nX-Header: c\n\r", "2", {.fileName = "\"d\"\r\n"});
    EXPECT_EQ(judge(),
        Texts({expectedPart({"a%22; filename=%22x", "1"}),
            expectedPart({"b%0D%0AX-Header: c%0A%0D", "2", "%22d%22%0D%0A"})}));
}

TEST_F(CFormDataTest, isTheSameInBlocksOfAnySize)
{
    m_form->addText("a", "text");
    m_form->addFile("b", write("file", std::string(10'000, 'x')));
    m_form->addText("c", "");
    const std::string whole = read();
    m_form->seek(0);
    EXPECT_EQ(read(1), whole);
    m_form->seek(0);
    EXPECT_EQ(read(7), whole);
    EXPECT_EQ(m_form->getLength(), static_cast<long long>(whole.size()));
    EXPECT_EQ(m_form->getPosition(), m_form->getLength());
}

TEST_F(CFormDataTest, goesOnWhereItWasSought)
{
    m_form->addText("a", "text");
    m_form->addFile("b", write("file", "0123456789"));
    m_form->addStream("c", kx::newObj<kx::CBufferStream>(bufferOf("stream")).get());
    const std::string whole = read();
    for (size_t i = 0; i <= whole.size(); ++i) {
        m_form->seek(static_cast<long long>(i));
        EXPECT_EQ(m_form->getPosition(), static_cast<long long>(i));
        EXPECT_EQ(read(100), whole.substr(i)) << i;
    }
    EXPECT_THROW(m_form->seek(static_cast<long long>(whole.size()) + 1), kx::CError);
    EXPECT_THROW(m_form->seek(-1), kx::CError);
}

TEST_F(CFormDataTest, hasNoLengthWithAStreamOfUnknownLength)
{
    m_form->addStream("a", kx::newObj<CUnknownStream>(bufferOf("stream")).get());
    m_form->addText("b", "text");
    EXPECT_EQ(m_form->getLength(), -1);
    EXPECT_EQ(judge(), Texts({expectedPart({"a", "stream"}), expectedPart({"b", "text"})}));
    EXPECT_EQ(support::messageOf([this] { m_form->seek(150); }), "There is no known position 150 in the form.");
    m_form->seek(0);
    EXPECT_EQ(judge(), Texts({expectedPart({"a", "stream"}), expectedPart({"b", "text"})}));
}

TEST_F(CFormDataTest, sendsAStreamFromItsStart)
{
    const auto stream = kx::newObj<kx::CBufferStream>(bufferOf("stream"));
    stream->seek(3);
    m_form->addStream("a", stream.get());
    EXPECT_EQ(judge(), Texts({expectedPart({"a", "stream"})}));
}

TEST_F(CFormDataTest, namesThePartThatEndsBeforeItsLength)
{
    m_form->addStream("the part", kx::newObj<CShortStream>(bufferOf("stream")).get());
    EXPECT_EQ(readError(), "The part 'the part' of the form has another length than when it was added, 11 bytes.");
}

TEST_F(CFormDataTest, namesThePartThatHasGrown)
{
    const auto buffer = bufferOf("bytes");
    m_form->addBuffer("the part", buffer.get());
    buffer->append(buffer->getData(), 1);
    EXPECT_EQ(readError(), "The part 'the part' of the form has another length than when it was added, 5 bytes.");
}

TEST_F(CFormDataTest, namesTheFileThatIsNotThereWhenItIsAdded)
{
    EXPECT_EQ(support::messageOf([this] { m_form->addFile("file", "/nowhere/file"); }),
        "The file '/nowhere/file' cannot be read: No such file or directory.");
    EXPECT_EQ(
        support::messageOf([this] { m_form->addFile("file", "/"); }), "The file '/' cannot be read: Is a directory.");
    EXPECT_EQ(m_form->getLength(), 58); // nothing but its end
}

TEST_F(CFormDataTest, namesTheFileThatIsGoneWhenItsTurnComes)
{
    m_form->addFile("file", write("file", "0123456789"));
    fs::remove(path("file"));
    EXPECT_EQ(readError(), "The file '" + nameOf("file") + "' cannot be read: No such file or directory.");
}

TEST_F(CFormDataTest, namesTheFileThatHasAnotherSizeWhenItsTurnComes)
{
    m_form->addFile("file", write("file", "0123456789"));
    write("file", "012");
    EXPECT_EQ(readError(),
        "The file '" + nameOf("file") + "' has changed since it was added to the form: it had 10 bytes and has 3.");
}

TEST_F(CFormDataTest, namesTheFileThatIsAPipeWhenItsTurnComes)
{
    m_form->addFile("file", write("file", "0123456789"));
    fs::remove(path("file"));
    ASSERT_EQ(mkfifo(path("file").c_str(), 0600), 0);
    const support::CDescriptor writer(open(path("file").c_str(), O_RDWR)); // so that to open it waits for nobody
    EXPECT_EQ(readError(),
        "The file '" + nameOf("file") + "' has changed since it was added to the form: it is no file any more.");
}

class CFormDataFileTest : public CFormDataTest {
protected:
    /// A form that has half of its file read.
    CFormDataFileTest()
    {
        m_form->addFile("file", write("file", std::string(1000, 'x')));
        std::array<unsigned char, 700> half{};
        EXPECT_EQ(m_form->read(half.data(), half.size(), {}), 700);
    }
};

TEST_F(CFormDataFileTest, namesTheFileThatBecomesShorterWhileItIsRead)
{
    fs::resize_file(path("file"), 10);
    EXPECT_TRUE(readError().startsWith("The file '" + nameOf("file") + "' cannot be read: it has ended behind "));
}

TEST_F(CFormDataFileTest, namesTheFileThatGrowsWhileItIsRead)
{
    std::ofstream(path("file"), std::ios::app) << "more";
    EXPECT_EQ(readError(),
        "The file '" + nameOf("file") + "' cannot be read: it has 1004 bytes now and had 1000 when it was opened.");
}

TEST_F(CFormDataFileTest, isWholeAgainFromItsStartOnceTheFileIs)
{
    fs::resize_file(path("file"), 10);
    readError();
    write("file", std::string(1000, 'y'));
    m_form->seek(0);
    EXPECT_EQ(judge(), Texts({expectedPart({"file", std::string(1000, 'y'), "file", "application/octet-stream"})}));
}

TEST_F(CFormDataTest, namesTheEmptyFileThatIsNoLongerEmpty)
{
    m_form->addFile("file", write("file", ""));
    write("file", "text");
    EXPECT_EQ(readError(),
        "The file '" + nameOf("file") + "' has changed since it was added to the form: it had 0 bytes and has 4.");
}

TEST_F(CFormDataTest, sendsAPipeOnce)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    m_form->addFile("file", CFormData::Path::fromBytes(path("pipe").native()));
    EXPECT_EQ(m_form->getLength(), -1);
    std::thread writer([this] { std::ofstream(path("pipe")) << "through"; });
    EXPECT_EQ(judge(), Texts({expectedPart({"file", "through", "pipe", "application/octet-stream"})}));
    writer.join();
    m_form->seek(0);
    EXPECT_EQ(readError(), "The file '" + nameOf("pipe") + "' cannot be read: Illegal seek.");
}

TEST_F(CFormDataTest, opensItsFilesOneByOne)
{
    const auto file = write("file", "x");
    const support::CFewDescriptors few(100);
    for (int i = 0; i < 200; ++i)
        m_form->addFile("file", file);
    EXPECT_EQ(static_cast<long long>(read().size()), m_form->getLength());
}

class CFormDataRefusalTest : public CFormDataTest {
protected:
    kx::String refusalOf(const kx::String& name, const norla::CFormPart& part)
    {
        const kx::String message = support::messageOf([&] { m_form->addText(name, "text", part); });
        EXPECT_EQ(m_form->getLength(), 58); // nothing but its end
        return message;
    }
};

TEST_F(CFormDataRefusalTest, refusesNamesWithAZeroCharacter)
{
    const kx::String name(std::wstring(L"a\0b", 3));
    EXPECT_EQ(refusalOf(name, {}),
        "Invalid argument passed to 'CFormData::addPart': the name of a part contains a zero character.");
    EXPECT_EQ(refusalOf("name", {.fileName = name}),
        "Invalid argument passed to 'CFormData::addPart': the file name of a part contains a zero character.");
}

TEST_F(CFormDataRefusalTest, refusesContentTypesThatBeginAnotherLine)
{
    EXPECT_EQ(refusalOf("name", {.contentType = "text/plain\r\nX-Header: a"}),
        "Invalid argument passed to 'CFormData::addPart': the content type of a part holds something else than visible "
        "ASCII.");
}

TEST_F(CFormDataTest, refusesNullPointers)
{
    EXPECT_THROW(m_form->addBuffer("name", nullptr), kx::CInvalidArgError);
    EXPECT_THROW(m_form->addStream("name", nullptr), kx::CInvalidArgError);
}

/// The most memory that the process has had at one time, in KiB.
long peakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:"))
            return std::stol(line.substr(6));
    }
    return 0;
}

TEST_F(CFormDataTest, hasNoFileInMemory)
{
    constexpr long long gibibyte = 1LL << 30;
    const auto file = write("file", "");
    fs::resize_file(path("file"), gibibyte); // takes no space on the disk
    m_form->addFile("file", file);
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak is what it has now
    const long before = peakMemory();
    std::vector<unsigned char> block(1 << 20);
    long long size = 0;
    for (int count = 0; (count = m_form->read(block.data(), 1 << 20, {})) > 0;)
        size += count;
    EXPECT_EQ(size, m_form->getLength());
    EXPECT_GT(size, gibibyte);
    EXPECT_LT(peakMemory() - before, 32 << 10);
}

} // namespace
