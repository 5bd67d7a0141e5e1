// Files that are sent to FTP and SSH servers.
#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/errorKind.h"
#include "norla/files/CFileUpload.h"
#include "tests/live/FTPSession.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/files.h"
#include "tests/support/systemError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using norla::ErrorKind;
using norla::FileState;
using testing::ElementsAre;
using testing::HasSubstr;

/// A server with a folder.
class IStore {
public:
    IStore() = default;
    IStore(const IStore&) = delete;
    IStore& operator=(const IStore&) = delete;
    virtual ~IStore() = default;
    virtual std::filesystem::path root() const = 0;
    virtual void prepare(norla::CNetRequest& request, const std::string& escapedName) const = 0;
};

class CFTPStore : public IStore {
public:
    explicit CFTPStore(std::unique_ptr<support::IFTPServer> server)
        : m_server(std::move(server))
    {
    }
    std::filesystem::path root() const override { return m_server->root() / "store"; }
    void prepare(norla::CNetRequest& request, const std::string& escapedName) const override
    {
        request.setURL(kx::String::fromUTF8(m_server->url("/store/" + escapedName)));
        request.setUserName("user");
        request.setUserPassword("secret");
        request.setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        if (m_server->getSecurity() == support::IFTPServer::Security::Explicit)
            request.setFTPUseSSL(CURLUSESSL_ALL);
    }

private:
    const std::unique_ptr<support::IFTPServer> m_server;
};

class CSSHStore : public IStore {
public:
    std::filesystem::path root() const override { return m_server.root() / "store"; }
    void prepare(norla::CNetRequest& request, const std::string& escapedName) const override
    {
        request.setURL(kx::String::fromUTF8(m_server.url(root().string() + "/" + escapedName)));
        request.setUserName(kx::String::fromUTF8(m_server.userName()));
        request.setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(m_knownHosts.native()));
        request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(m_server.privateKeyFile().string()));
        request.setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(m_server.publicKeyFile().string()));
        request.setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
    }

private:
    const support::CSSHServer m_server;
    const support::CTemporaryFolder m_folder;
    const std::filesystem::path m_knownHosts = m_folder.write("known_hosts", m_server.knownHostsLine());
};

using Security = support::IFTPServer::Security;

struct CStoreRow {
    const char* name;
    std::unique_ptr<IStore> (*make)();
};

void PrintTo(const CStoreRow& row, std::ostream* out)
{
    *out << row.name;
}

template <std::unique_ptr<support::IFTPServer> (*make)(Security), Security security>
std::unique_ptr<IStore> makeFTPStore()
{
    return std::make_unique<CFTPStore>(make(security));
}

class FileUploadTest : public testing::TestWithParam<CStoreRow> {
protected:
    using Options = norla::CFileUploadOptions;
    static constexpr size_t mebibyte = 1 << 20;

    FileUploadTest()
    {
        std::filesystem::create_directories(m_store->root());
        std::filesystem::permissions(m_store->root(), std::filesystem::perms::all);
        m_options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(1);
    }

    Options& options() { return m_options; }
    std::filesystem::path source() const { return m_folder.path() / "source"; }
    std::filesystem::path onDisk(const std::string& name) const { return m_store->root() / name; }

    /// Bytes of which no two parts are the same.
    static std::string bytesOf(size_t size) { return support::distinctBytes(size); }

    kx::P<norla::CFileUpload> upload(const std::string& escapedName = "file")
    {
        return kx::newObj<norla::CFileUpload>(
            [this, escapedName](norla::CNetRequest& request) { m_store->prepare(request, escapedName); },
            norla::CFileUpload::Path::fromBytes(source().native()), m_options);
    }

    static kx::P<kx::CError> failureOf(norla::CFileUpload& upload)
    {
        return support::errorOf([&upload] { upload.run(); });
    }

    /// The names at the server, in their order.
    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(m_store->root()))
            all.push_back(entry.path().filename().string());
        std::sort(all.begin(), all.end());
        return all;
    }

    /// Sends so slowly that something can happen meanwhile, which does once some of the file is there.
    void meanwhile(const std::function<void(norla::CFileUpload&)>& action)
    {
        m_options.speedLimit = 4 * mebibyte;
        m_options.onProgress = [this, action, isDone = false](const norla::CFileProgress& progress) mutable {
            if (progress.done > 0 && part() && !std::exchange(isDone, true))
                action(*m_running);
        };
    }
    kx::P<kx::CError> failureMeanwhile(const std::function<void(norla::CFileUpload&)>& action)
    {
        meanwhile(action);
        const auto file = upload();
        m_running = file.get();
        const auto error = failureOf(*file);
        m_options.speedLimit = 0;
        m_options.onProgress = {};
        return error;
    }

    /// The temporary file at the server.
    std::optional<std::filesystem::path> part() const
    {
        for (const std::string& name : names()) {
            if (name.ends_with(".norla-part"))
                return onDisk(name);
        }
        return std::nullopt;
    }

    /// Leaves the bytes as the part of an upload that was cancelled. Its own file is another one, to which a server may
    /// still write.
    void leavePart(const std::string& bytes)
    {
        const auto error = failureMeanwhile([](norla::CFileUpload& file) { file.cancel(); });
        ASSERT_TRUE(error);
        ASSERT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
        const auto file = part();
        ASSERT_TRUE(file);
        std::filesystem::remove(*file);
        support::writeFile(*file, bytes);
        std::filesystem::permissions(*file, std::filesystem::perms{0666});
    }

    const std::unique_ptr<IStore> m_store = GetParam().make();
    const support::CTemporaryFolder m_folder;
    Options m_options;
    norla::CFileUpload* m_running = nullptr;
};

TEST_P(FileUploadTest, givesTheWholeFileItsNameAndLeavesNothingElse)
{
    m_folder.write("source", bytesOf(mebibyte));
    const auto file = upload();
    file->run();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
    EXPECT_EQ(live::contentOf(onDisk("file")), bytesOf(mebibyte));
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, anEmptyFileIsOneToo)
{
    m_folder.write("source", "");
    upload()->run();
    EXPECT_TRUE(std::filesystem::exists(onDisk("file")));
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, sendsItUnderItsOwnNameWhereItIsToldTo)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    options().temporaryName = false;
    options().speedLimit = 3 * mebibyte;
    bool wasThere = false;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5); // for the server
        while (!wasThere && progress.done > 0 && progress.done < progress.total
            && std::chrono::steady_clock::now() < limit)
            wasThere = names().size() == 1;
        EXPECT_FALSE(part());
    };
    upload()->run();
    EXPECT_TRUE(wasThere);
    EXPECT_EQ(live::contentOf(onDisk("file")), bytesOf(4 * mebibyte));
}

TEST_P(FileUploadTest, takesAnyName)
{
    m_folder.write("source", "the body");
    upload("a%20%22b%22%20c%3B%3F%23%25%C3%A4")->run();
    EXPECT_THAT(names(), ElementsAre("a \"b\" c;?#%\xC3\xA4"));
}

TEST_P(FileUploadTest, replacesNothingUnlessToldTo)
{
    m_folder.write("source", "newer");
    support::writeFile(onDisk("file"), "older");
    const auto error = failureOf(*upload());
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("/file' already."));
    EXPECT_EQ(live::contentOf(onDisk("file")), "older");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, replacesAFileWhereItIsToldTo)
{
    m_folder.write("source", "newer");
    support::writeFile(onDisk("file"), "older");
    options().overwrite = true;
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), "newer");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, replacesNoFileThatHasComeMeanwhile)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    const auto error
        = failureMeanwhile([this](norla::CFileUpload&) { support::writeFile(onDisk("file"), "somebody's"); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("/file' already."));
    EXPECT_EQ(live::contentOf(onDisk("file")), "somebody's");
}

TEST_P(FileUploadTest, goesOnBehindThePartThatIsThere)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    std::string part = bytes.substr(0, mebibyte);
    part[part.size() / 2] = '#'; // which nobody looks at
    leavePart(part);
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), part + bytes.substr(part.size()));
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, beginsAnewWhereTheLastBytesOfThePartAreOthers)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart(bytes.substr(0, mebibyte - 1) + '#');
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, beginsAnewWhereTheFirstBytesOfThePartAreOthers)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart('#' + bytes.substr(1, mebibyte));
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
}

TEST_P(FileUploadTest, beginsAnewWhereASmallPartIsAnother)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart("01#");
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
}

TEST_P(FileUploadTest, beginsAnewWhereThePartIsLongerThanTheFile)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart(bytes + '#');
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
}

// Servers that run as root append all the same.
TEST_P(FileUploadTest, beginsAnewWhereNothingMayBeAppended)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart(bytes.substr(0, mebibyte));
    std::filesystem::permissions(part().value(), std::filesystem::perms{0444});
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, beginsAnewWhereItIsNotToResume)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    std::string part = bytes.substr(0, mebibyte);
    part[part.size() / 2] = '#';
    leavePart(part);
    options().resume = false;
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
}

TEST_P(FileUploadTest, beginsAnewWhereWhatWasAppendedStandsAtAnotherPlace)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart(bytes.substr(0, mebibyte));
    const auto error = failureMeanwhile(
        [this](norla::CFileUpload&) { std::ofstream(part().value(), std::ios::binary | std::ios::app) << '#'; });
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, givesAPartThatIsWholeItsName)
{
    std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    bytes[bytes.size() / 2] = '#';
    leavePart(bytes);
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
}

TEST_P(FileUploadTest, leavesNothingOfAnotherFileThatItIsMeanwhile)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    const auto error = failureMeanwhile(
        [this](norla::CFileUpload&) { std::fstream(source(), std::ios::in | std::ios::out).write("#", 1); });
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + source().native() + "' has changed while it was sent.");
    EXPECT_TRUE(names().empty());
}

TEST_P(FileUploadTest, leavesNothingOfAFileThatIsReplacedMeanwhile)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    const std::filesystem::path newer = m_folder.write("newer", bytesOf(4 * mebibyte));
    const auto error = failureMeanwhile([&](norla::CFileUpload&) { std::filesystem::rename(newer, source()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + source().native() + "' has changed while it was sent.");
    EXPECT_TRUE(names().empty());
}

// The file that was opened stays as it is, with all of its times.
TEST_P(FileUploadTest, leavesNothingWhereThePathLeadsToAnotherFileMeanwhile)
{
    m_folder.write("older", bytesOf(4 * mebibyte));
    m_folder.write("newer", bytesOf(4 * mebibyte));
    std::filesystem::create_symlink("older", source());
    const std::filesystem::path link = m_folder.path() / "link";
    std::filesystem::create_symlink("newer", link);
    const auto error = failureMeanwhile([&](norla::CFileUpload&) { std::filesystem::rename(link, source()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + source().native() + "' has changed while it was sent.");
    EXPECT_TRUE(names().empty());
}

TEST_P(FileUploadTest, sendsAFileAnewOnceItHasChanged)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    leavePart(bytes.substr(0, mebibyte));
    std::string others = bytes;
    others[mebibyte / 2] = '#';
    m_folder.write("source", others);
    upload()->run();
    EXPECT_EQ(live::contentOf(onDisk("file")), others);
}

TEST_P(FileUploadTest, keepsNothingWhereItIsNotTo)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    options().keepPart = false;
    const auto error = failureMeanwhile([](norla::CFileUpload& file) { file.cancel(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_TRUE(names().empty());
}

TEST_P(FileUploadTest, givesNoNameToAFileOfAnotherSize)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    const auto error = failureMeanwhile(
        [&](norla::CFileUpload&) { std::filesystem::resize_file(part().value(), bytes.size() + 1); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("' has 4194304 bytes, and what the server has of it as '"));
    EXPECT_THAT(error->what(), HasSubstr("' has 4194305."));
    EXPECT_TRUE(names().empty());
}

TEST_P(FileUploadTest, isWholeBehindAPauseToo)
{
    const std::string bytes = bytesOf(4 * mebibyte);
    m_folder.write("source", bytes);
    std::thread resumer;
    const auto error = failureMeanwhile([&](norla::CFileUpload& file) {
        file.pause();
        resumer = std::thread([&file] {
            while (file.getState() != FileState::Paused)
                std::this_thread::yield();
            file.resume();
        });
    });
    resumer.join();
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(live::contentOf(onDisk("file")), bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileUploadTest, namesTheFolderThatIsNotThere)
{
    m_folder.write("source", "the body");
    ASSERT_TRUE(failureOf(*upload("missing/file")));
    EXPECT_TRUE(names().empty());
}

class FileUploadSFTPTest : public FileUploadTest {};

// As the part stands there: a pipe into which the server is to write, and which nobody reads.
TEST_P(FileUploadSFTPTest, aServerThatFallsSilentInACommandIsNotWaitedForWithoutEnd)
{
    m_folder.write("source", bytesOf(4 * mebibyte));
    leavePart("");
    const std::filesystem::path pipe = part().value();
    std::filesystem::remove(pipe);
    support::checked(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), "mkfifo");
    options().retries = norla::CRetryPolicy::none();
    const auto file = kx::newObj<norla::CFileUpload>(
        [this](norla::CNetRequest& request) {
            m_store->prepare(request, "file");
            request.setDeadlines(
                {.connect = kx::CTimeSpan::fromSeconds(2), .inactivity = kx::CTimeSpan::fromSeconds(1), .total = {}});
        },
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    const support::CDescriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); // whom they wait for
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::InactivityTimeout) << error->what();
    EXPECT_THAT(error->what(), testing::EndsWith(" has not answered for 3 seconds."));
}

INSTANTIATE_TEST_SUITE_P(Servers, FileUploadSFTPTest,
    testing::Values(CStoreRow{"OpenSSH", [] { return std::unique_ptr<IStore>(std::make_unique<CSSHStore>()); }}),
    testing::PrintToStringParamName());

INSTANTIATE_TEST_SUITE_P(Servers, FileUploadTest,
    testing::Values(CStoreRow{"pyftpdlib", makeFTPStore<live::makePyftpdlib, Security::None>},
        CStoreRow{"ProFTPD", makeFTPStore<live::makeLenient<support::CProFTPDServer>, Security::None>},
        CStoreRow{"PureFTPd", makeFTPStore<live::makePureFTPd, Security::None>},
        CStoreRow{"vsftpd", makeFTPStore<live::makeLenient<support::CVsftpdServer>, Security::None>},
        CStoreRow{"ProFTPDWithTLS", makeFTPStore<live::makeLenient<support::CProFTPDServer>, Security::Explicit>},
        CStoreRow{"VsftpdWithTLS", makeFTPStore<live::makeLenient<support::CVsftpdServer>, Security::Explicit>},
        CStoreRow{"ProFTPDOverFTPS", makeFTPStore<live::makeLenient<support::CProFTPDServer>, Security::Implicit>},
        CStoreRow{"vsftpdOverFTPS", makeFTPStore<live::makeLenient<support::CVsftpdServer>, Security::Implicit>},
        CStoreRow{"OpenSSH", [] { return std::unique_ptr<IStore>(std::make_unique<CSSHStore>()); }}),
    testing::PrintToStringParamName());

} // namespace
