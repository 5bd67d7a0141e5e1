#include "norla/ftp/CFTPClient.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/containers/TArray.h"
#include "kx/random/CMTRand.h"
#include "kx/text/numbers.h"
#include "kx/threads/CMutexLock.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using norla::CFTPClient;
using norla::CNetRequest;
using Options = std::vector<std::string>;

// Programs pass these numbers on.
static_assert(
    CFTPClient::ConnectUnencrypted == 0 && CFTPClient::ConnectExplicitTLS == 1 && CFTPClient::ConnectImplicitTLS == 2);
static_assert(
    std::is_same_v<std::underlying_type_t<CFTPClient::ConnectType>, int> && sizeof(CFTPClient::ConnectType) == 4);
static_assert(CFTPClient::CWDInvalid == -1 && CFTPClient::CWDSteps == 0 && CFTPClient::CWDDirect == 1
    && CFTPClient::CWDNone == 2);
static_assert(std::is_same_v<std::underlying_type_t<CFTPClient::CWDType>, int> && sizeof(CFTPClient::CWDType) == 4);

class CFTPClientTest : public testing::Test {
protected:
    using Prepare = std::function<void(CFTPClient&)>;

    /// The options that a client sets, from the URL on; those of bodies, which are callbacks, are left out.
    Options optionsOf(CFTPClient& client, const Prepare& prepare)
    {
        m_calls.takeOptions();
        prepare(client);
        Options options = m_calls.takeOptions();
        options.erase(options.begin(), url(options));
        std::erase_if(options,
            [](const std::string& option) { return option.starts_with("READ") || option.starts_with("SEEK"); });
        return options;
    }

    Options optionsOf(const Prepare& prepare)
    {
        CFTPClient client("host:2121", "name", "pass", CFTPClient::ConnectUnencrypted);
        return optionsOf(client, prepare);
    }

    static Options begin(const std::string& path, bool createMissingDirs, std::initializer_list<std::string> more = {})
    {
        Options options{"URL=ftp://host:2121" + path, "USERNAME=name", "PASSWORD=pass",
            createMissingDirs ? "FTP_FILEMETHOD=1" : "FTP_FILEMETHOD=2",
            createMissingDirs ? "FTP_CREATE_MISSING_DIRS=2" : "FTP_CREATE_MISSING_DIRS=0"};
        options.insert(options.end(), more);
        return options;
    }

    static Options::iterator url(Options& options)
    {
        return std::find_if(
            options.begin(), options.end(), [](const std::string& option) { return option.starts_with("URL="); });
    }

    CNetRequest& request() { return *m_request; }

    support::CCurlCalls m_calls;

private:
    kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
};

struct COperation {
    const char* name;
    std::function<void(CFTPClient&, CNetRequest&)> prepare;
};

class CFTPClientOperationTest : public CFTPClientTest, public testing::WithParamInterface<COperation> {};

TEST_P(CFTPClientOperationTest, beginsWithAReset)
{
    m_calls.takeOptions();
    request().reset();
    const Options ofReset = m_calls.takeOptions();
    CFTPClient client("host", "name", "pass", CFTPClient::ConnectUnencrypted);
    GetParam().prepare(client, request());
    Options options = m_calls.takeOptions();
    EXPECT_EQ(Options(options.begin(), url(options)), ofReset);
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientOperationTest,
    testing::ValuesIn(std::vector<COperation>{
        {"any", [](auto& client, auto& request) { client.beginPrepareRequest(request, "/f", false); }},
        {"upload", [](auto& client, auto& request) { client.prepareUploadRequest(request, "/f", "1", 1, false); }},
        {"download", [](auto& client, auto& request) { client.prepareDownloadRequest(request, "/f", 1, 1); }},
        {"verification", [](auto& client, auto& request) { client.prepareVerifyExistsRequest(request, "/f"); }},
        {"info", [](auto& client, auto& request) { client.prepareGetInfoRequest(request, "/f"); }},
        {"moveOfAFile", [](auto& client, auto& request) { client.prepareMoveFileRequest(request, "/f", "/g", false); }},
        {"moveOfAFileIntoDirs",
            [](auto& client, auto& request) { client.prepareMoveFileRequest(request, "/f", "/d/g", true); }},
        {"moveOfADir", [](auto& client, auto& request) { client.prepareMoveDirRequest(request, "/d", "/e", false); }},
        {"moveOfADirIntoDirs",
            [](auto& client, auto& request) { client.prepareMoveDirRequest(request, "/d", "/e/d", true); }},
        {"deletion", [](auto& client, auto& request) { client.prepareDeleteFileRequest(request, "/f"); }},
        {"removal", [](auto& client, auto& request) { client.prepareRemoveDirRequest(request, "/d"); }},
        {"creation", [](auto& client, auto& request) { client.prepareCreateDirRequest(request, "/d", false); }},
        {"creationWithParents",
            [](auto& client, auto& request) { client.prepareCreateDirRequest(request, "/d", true); }},
        {"listing", [](auto& client, auto& request) { client.prepareListDirRequest(request, "/d"); }},
    }),
    [](const auto& row) { return row.param.name; });

TEST_F(CFTPClientTest, beginsWithoutDirectoriesToMake)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.beginPrepareRequest(request(), "/a b", false); }),
        begin("/a b", false));
}

TEST_F(CFTPClientTest, beginsWithDirectoriesToMake)
{
    EXPECT_EQ(
        optionsOf([this](auto& client) { client.beginPrepareRequest(request(), "/a/b", true); }), begin("/a/b", true));
}

struct CConnection {
    CFTPClient::ConnectType type;
    Options expected;
};

class CFTPClientConnectTypeTest : public CFTPClientTest, public testing::WithParamInterface<CConnection> {};

TEST_P(CFTPClientConnectTypeTest, decidesSchemeAndTLS)
{
    CFTPClient client("host", "name", "pass", GetParam().type);
    Options expected = GetParam().expected;
    expected.insert(expected.end(), {"FTP_FILEMETHOD=2", "FTP_CREATE_MISSING_DIRS=0"});
    EXPECT_EQ(optionsOf(client, [this](auto& c) { c.beginPrepareRequest(request(), "/a", false); }), expected);
}

INSTANTIATE_TEST_SUITE_P(Types, CFTPClientConnectTypeTest,
    testing::Values(CConnection{CFTPClient::ConnectUnencrypted, {"URL=ftp://host/a", "USERNAME=name", "PASSWORD=pass"}},
        CConnection{
            CFTPClient::ConnectExplicitTLS, {"URL=ftp://host/a", "USERNAME=name", "PASSWORD=pass", "USE_SSL=3"}},
        CConnection{CFTPClient::ConnectImplicitTLS, {"URL=ftps://host/a", "USERNAME=name", "PASSWORD=pass"}},
        CConnection{static_cast<CFTPClient::ConnectType>(7), {"URL=ftp://host/a", "USERNAME=name", "PASSWORD=pass"}}));

TEST_F(CFTPClientTest, verifiesAgainstOtherCertificatesWhenTold)
{
    CFTPClient client("host", "name", "pass", CFTPClient::ConnectExplicitTLS);
    client.setRootCertBundlePath("/certificates.pem");
    const auto prepare = [this](auto& c) { c.beginPrepareRequest(request(), "/a", false); };
    EXPECT_EQ(optionsOf(client, prepare),
        (Options{"URL=ftp://host/a", "USERNAME=name", "PASSWORD=pass", "USE_SSL=3", "CAINFO=/certificates.pem",
            "FTP_FILEMETHOD=2", "FTP_CREATE_MISSING_DIRS=0"}));
    client.setRootCertBundlePath("");
    const Options options = optionsOf(client, prepare);
    EXPECT_EQ(std::find(options.begin(), options.end(), "CAINFO=/certificates.pem"), options.end());
}

TEST_F(CFTPClientTest, setsItsSafeDefaultsBeforeAnythingElse)
{
    CFTPClient client("host", "name", "pass", CFTPClient::ConnectUnencrypted);
    client.setSafeDefaults({.maxRedirects = 3});
    m_calls.takeOptions();
    client.beginPrepareRequest(request(), "/a", false);
    const Options options = m_calls.takeOptions();
    const auto limit = std::find(options.begin(), options.end(), "MAXREDIRS=3");
    ASSERT_NE(limit, options.end());
    EXPECT_NE(std::find(limit, options.end(), "URL=ftp://host/a"), options.end());
}

struct COverride {
    int type;
    const char* withDirs;    ///< the file method when directories are to be made; empty for none
    const char* withoutDirs; ///< and when they are not
};

class CFTPClientCWDTest : public CFTPClientTest, public testing::WithParamInterface<COverride> {};

TEST_P(CFTPClientCWDTest, decidesTheWayToADirectory)
{
    CFTPClient client("host", "name", "pass", CFTPClient::ConnectUnencrypted);
    client.setOverrideCWDType(static_cast<CFTPClient::CWDType>(GetParam().type));
    for (const bool create : {true, false}) {
        const std::string method = create ? GetParam().withDirs : GetParam().withoutDirs;
        Options expected{"URL=ftp://host/a", "USERNAME=name", "PASSWORD=pass"};
        if (!method.empty())
            expected.push_back("FTP_FILEMETHOD=" + method);
        expected.push_back(create ? "FTP_CREATE_MISSING_DIRS=2" : "FTP_CREATE_MISSING_DIRS=0");
        EXPECT_EQ(
            optionsOf(client, [this, create](auto& c) { c.beginPrepareRequest(request(), "/a", create); }), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Overrides, CFTPClientCWDTest,
    testing::Values(COverride{-1, "1", "2"}, COverride{0, "1", "1"}, COverride{1, "3", "3"}, COverride{2, "2", "2"},
        COverride{7, "", ""}, COverride{-2, "", ""}, COverride{3, "", ""}));

TEST_F(CFTPClientTest, uploadsAFile)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareUploadRequest(request(), "/d/f", "12345", 5, false); }),
        begin("/d/f", false, {"UPLOAD=1", "INFILESIZE_LARGE=5"}));
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareUploadRequest(request(), "/d/f", "12345", 5, true); }),
        begin("/d/f", true, {"UPLOAD=1", "INFILESIZE_LARGE=5"}));
}

TEST_F(CFTPClientTest, uploadsAnEmptyFile)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareUploadRequest(request(), "/f", nullptr, 0, false); }),
        begin("/f", false, {"UPLOAD=1", "INFILESIZE_LARGE=0"}));
}

TEST_F(CFTPClientTest, copiesNothingOfANegativeSize)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareUploadRequest(request(), "/f", nullptr, -1, false); }),
        begin("/f", false, {"UPLOAD=1", "INFILESIZE_LARGE=-1"}));
}

TEST_F(CFTPClientTest, downloadsAWholeFile)
{
    EXPECT_EQ(
        optionsOf([this](auto& client) { client.prepareDownloadRequest(request(), "/f", 0, -1); }), begin("/f", false));
}

TEST_F(CFTPClientTest, downloadsARange)
{
    const auto rangeOf = [this](long long offset, long long length) {
        return optionsOf([this, offset, length](auto& client) {
            client.prepareDownloadRequest(request(), "/f", offset, length);
        }).back();
    };
    EXPECT_EQ(rangeOf(100, -1), "RANGE=100-");
    EXPECT_EQ(rangeOf(0, 10), "RANGE=0-9");
    EXPECT_EQ(rangeOf(5, 1), "RANGE=5-5");
    EXPECT_EQ(rangeOf(5'000'000'000, 2), "RANGE=5000000000-5000000001");
    EXPECT_EQ(rangeOf(5, 0), "RANGE=5-4");
    EXPECT_EQ(rangeOf(5, -2), "RANGE=5-2");
}

TEST_F(CFTPClientTest, refusesARangeBeyond64Bits)
{
    constexpr long long most = std::numeric_limits<long long>::max();
    constexpr long long least = std::numeric_limits<long long>::min();
    for (const auto& [offset, length] : {std::pair{most, 2LL}, std::pair{least, -2LL}, std::pair{least, 0LL}})
        EXPECT_THROW(optionsOf([&, first = offset, count = length](
                                   auto& client) { client.prepareDownloadRequest(request(), "/f", first, count); }),
            kx::CInvalidArgError);
}

TEST_F(CFTPClientTest, asksWhetherAPathExists)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareVerifyExistsRequest(request(), "/a b"); }),
        begin("", false, {"PREQUOTE=[MLST /a b]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, asksAboutAPathInTheSameWay)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareGetInfoRequest(request(), "/a b"); }),
        begin("", false, {"PREQUOTE=[MLST /a b]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, deletesAFile)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareDeleteFileRequest(request(), "/f"); }),
        begin("", false, {"PREQUOTE=[DELE /f]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, removesADirectory)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareRemoveDirRequest(request(), "/d"); }),
        begin("", false, {"PREQUOTE=[RMD /d]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, movesAFile)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareMoveFileRequest(request(), "/a", "/b", false); }),
        begin("", false, {"PREQUOTE=[RNFR /a, RNTO /b]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, movesAFileIntoDirectoriesToMake)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareMoveFileRequest(request(), "/a", "/x/b", true); }),
        begin("/x/b", true, {"PREQUOTE=[RNFR /a, RNTO /x/b]", "UPLOAD=1", "APPEND=1"}));
}

TEST_F(CFTPClientTest, movesADirectory)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareMoveDirRequest(request(), "/a", "/b", false); }),
        begin("", false, {"PREQUOTE=[RNFR /a, RNTO /b]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, movesADirectoryIntoDirectoriesToMake)
{
    const auto move = [this](auto& client) { client.prepareMoveDirRequest(request(), "/from", "/a/b", true); };
    const Options options = optionsOf(move);
    const std::string start = "URL=ftp://host:2121/a/b/__dummy";
    ASSERT_TRUE(options.at(0).starts_with(start)) << options[0];
    const std::string number = options[0].substr(start.size());
    EXPECT_EQ(number, std::to_string(std::stoull(number)));
    EXPECT_EQ(options,
        begin("/a/b/__dummy" + number, true,
            {"PREQUOTE=[RNFR /from, RNTO /a/b]", "UPLOAD=1", "POSTQUOTE=[DELE /a/b/__dummy" + number + "]"}));
    EXPECT_NE(optionsOf(move), options); // another number
}

TEST_F(CFTPClientTest, namesTheDummyByTheNextNumberOfTheProcess)
{
    constexpr unsigned long long seed = 4711;
    {
        const kx::CMutexLock lock(kx::CMTRand::getGlobalMutex());
        kx::CMTRand::getGlobal() = kx::CMTRand(seed);
    }
    kx::CMTRand expected(seed);
    for (int i = 0; i < 2; ++i) {
        const auto options
            = optionsOf([this](auto& client) { client.prepareMoveDirRequest(request(), "/from", "/to", true); });
        EXPECT_EQ(options.at(0), "URL=ftp://host:2121/to/__dummy" + std::to_string(expected.rand64()));
    }
    const kx::CMutexLock lock(kx::CMTRand::getGlobalMutex());
    kx::CMTRand::getGlobal() = kx::CMTRand();
}

TEST_F(CFTPClientTest, logsNothing)
{
    const support::CLogRecorder log;
    CFTPClient client("host", "name", "pass", CFTPClient::ConnectExplicitTLS);
    client.prepareUploadRequest(request(), "/f", "1", 1, true);
    client.prepareDownloadRequest(request(), "/f", 1, 1);
    client.prepareGetInfoRequest(request(), "/f");
    client.prepareMoveFileRequest(request(), "/f", "/d/g", true);
    client.prepareMoveDirRequest(request(), "/d", "/e/d", true);
    client.prepareDeleteFileRequest(request(), "/f");
    client.prepareRemoveDirRequest(request(), "/d");
    client.prepareCreateDirRequest(request(), "/d", true);
    client.prepareListDirRequest(request(), "/d");
    support::messageOf([] { CFTPClient::cwdTypeToString(static_cast<CFTPClient::CWDType>(3)); });
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST_F(CFTPClientTest, makesADirectory)
{
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareCreateDirRequest(request(), "/d", false); }),
        begin("", false, {"PREQUOTE=[MKD /d]", "NOBODY=1"}));
}

TEST_F(CFTPClientTest, makesADirectoryWithItsParents)
{
    for (const kx::String& path : kx::TArray<kx::String>{"/a/d", "/a/d/"})
        EXPECT_EQ(optionsOf([this, path](auto& client) { client.prepareCreateDirRequest(request(), path, true); }),
            begin("/a/d/", true, {"PREQUOTE=[MKD " + path.toUTF8() + "]"}));
}

TEST_F(CFTPClientTest, listsADirectory)
{
    for (const kx::String& path : kx::TArray<kx::String>{"/pub", "/pub/"})
        EXPECT_EQ(optionsOf([this, path](auto& client) { client.prepareListDirRequest(request(), path); }),
            begin("/pub/", false, {"CUSTOMREQUEST=MLSD"}));
    EXPECT_EQ(optionsOf([this](auto& client) { client.prepareListDirRequest(request(), ""); }),
        begin("/", false, {"CUSTOMREQUEST=MLSD"}));
}

TEST_F(CFTPClientTest, namesCWDTypes)
{
    EXPECT_EQ(CFTPClient::cwdTypeToString(CFTPClient::CWDSteps), "CWDSteps");
    EXPECT_EQ(CFTPClient::cwdTypeToString(CFTPClient::CWDDirect), "CWDDirect");
    EXPECT_EQ(CFTPClient::cwdTypeToString(CFTPClient::CWDNone), "CWDNone");
    EXPECT_EQ(CFTPClient::cwdTypeToString(CFTPClient::CWDInvalid), "CWDInvalid");
}

TEST_F(CFTPClientTest, namesNoOtherCWDType)
{
    for (const int type : {3, -2}) {
        const auto error
            = support::errorOf([type] { CFTPClient::cwdTypeToString(static_cast<CFTPClient::CWDType>(type)); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getMessage(), "Unknown CWDType: " + kx::toString(type));
        EXPECT_EQ(error->getDomain(), "");
        EXPECT_EQ(error->getCode(), -1);
    }
}

} // namespace
