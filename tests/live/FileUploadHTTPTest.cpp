// Files that are sent to nginx.
#include "norla/files/CFileUpload.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
}

class FileUploadHTTPTest : public testing::Test {
protected:
    kx::P<norla::CFileUpload> upload(const std::string& path)
    {
        return kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(m_server.url(path)),
            norla::CFileUpload::Path::fromBytes((m_folder.path() / "source").native()), m_options);
    }

    const support::CNginxServer m_server;
    const support::CTemporaryFolder m_folder;
    norla::CFileUploadOptions m_options;
};

TEST_F(FileUploadHTTPTest, putsAFileAndComparesItsSize)
{
    const std::string bytes(8 << 20, 'x');
    m_folder.write("source", bytes);
    m_options.askSizeAfterwards = true;
    upload("/dav/file")->run();
    EXPECT_EQ(contentOf(m_server.root() / "dav" / "file"), bytes);
}

TEST_F(FileUploadHTTPTest, sendsAllOfItToWhereARedirectLeads)
{
    const std::string bytes(2 << 20, 'x');
    m_folder.write("source", bytes);
    m_options.overwrite = true;
    upload("/redirect/307")->run();
    EXPECT_NE(m_server.lastAccess().find("PUT /echo HTTP/1.1 200"), std::string::npos) << m_server.lastAccess();
}

TEST_F(FileUploadHTTPTest, postsAFile)
{
    m_folder.write("source", "the body");
    m_options.post = true;
    upload("/store/file")->run();
    EXPECT_EQ(contentOf(m_server.root() / "store" / "file"), "the body");
}

} // namespace
