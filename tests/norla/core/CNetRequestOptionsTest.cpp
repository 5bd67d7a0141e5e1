// What the setters of CNetRequest make of their arguments, seen at libcurl's border.
#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/CTLSOptions.h"
#include "norla/proxy/CProxySettings.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace {

using Options = std::vector<std::string>;

class CNetRequestOptionsTest : public testing::Test {
protected:
    CNetRequestOptionsTest() { m_calls.takeOptions(); }

    norla::CNetRequest& request() { return *m_request; }
    Options options() { return m_calls.takeOptions(); }
    support::CCurlCalls& calls() { return m_calls; }

private:
    support::CCurlCalls m_calls;
    kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

const Options defaultOptions = {"ERRORBUFFER=set", "WRITEFUNCTION=set", "WRITEDATA=set", "READFUNCTION=set",
    "READDATA=set", "SEEKFUNCTION=set", "SEEKDATA=set", "HEADERFUNCTION=set", "HEADERDATA=set", "FOLLOWLOCATION=1",
    "NOSIGNAL=1", "CONNECTTIMEOUT_MS=30000", "LOW_SPEED_LIMIT=1", "LOW_SPEED_TIME=30"};

TEST(CNetRequestDefaultOptionsTest, areSetInTheirOrderAtConstruction)
{
    support::CCurlCalls calls;
    const auto request = kx::newObj<norla::CNetRequest>();
    EXPECT_EQ(calls.takeOptions(), defaultOptions);
}

TEST_F(CNetRequestOptionsTest, resetSetsTheDefaultsAgain)
{
    request().reset();
    EXPECT_EQ(options(), defaultOptions);
}

struct CSetterRow {
    const char* name;
    std::function<void(norla::CNetRequest&)> set;
    Options expected;
};

kx::CTimeSpan microseconds(long long count)
{
    return kx::CTimeSpan::fromMicroseconds(count);
}

const std::vector<CSetterRow> setters = {
    {"optionInt", [](auto& r) { r.setOptionInt(CURLOPT_MAXREDIRS, -1); }, {"MAXREDIRS=-1"}},
    {"optionInt64", [](auto& r) { r.setOptionInt64(CURLOPT_MAXFILESIZE_LARGE, 1LL << 40); },
        {"MAXFILESIZE_LARGE=1099511627776"}},
    {"optionPtr", [](auto& r) { r.setOptionPtr(CURLOPT_CUSTOMREQUEST, nullptr); }, {"CUSTOMREQUEST=null"}},
    {"optionString", [](auto& r) { r.setOptionString(CURLOPT_USERAGENT, L"\u00FC"); }, {"USERAGENT=\xC3\xBC"}},
    {"url", [](auto& r) { r.setURL("http://h/"); }, {"URL=http://h/"}},
    {"uploadOn", [](auto& r) { r.setUpload(true); }, {"UPLOAD=1"}},
    {"uploadOff", [](auto& r) { r.setUpload(false); }, {"UPLOAD=0"}},
    {"verboseOn", [](auto& r) { r.setVerbose(true); }, {"VERBOSE=1"}},
    {"verboseOff", [](auto& r) { r.setVerbose(false); }, {"VERBOSE=0"}},
    {"verifyPeerOn", [](auto& r) { r.setSSLVerifyPeer(true); }, {"SSL_VERIFYPEER=1"}},
    {"verifyPeerOff", [](auto& r) { r.setSSLVerifyPeer(false); }, {"SSL_VERIFYPEER=0"}},
    {"followRedirectsOn", [](auto& r) { r.setFollowRedirects(true); }, {"FOLLOWLOCATION=1"}},
    {"followRedirectsOff", [](auto& r) { r.setFollowRedirects(false); }, {"FOLLOWLOCATION=0"}},
    {"keepPostOnRedirect", [](auto& r) { r.setKeepPostOnRedirect(true); }, {"POSTREDIR=7"}},
    {"dropPostOnRedirect", [](auto& r) { r.setKeepPostOnRedirect(false); }, {"POSTREDIR=0"}},
    {"authMethods", [](auto& r) { r.setHTTPAuthMethods(CURLAUTH_BASIC | CURLAUTH_DIGEST); }, {"HTTPAUTH=3"}},
    {"authMethodsWithTheHighestBit", [](auto& r) { r.setHTTPAuthMethods(CURLAUTH_ONLY | CURLAUTH_BASIC); },
        {"HTTPAUTH=2147483649"}},
    {"useSSL", [](auto& r) { r.setFTPUseSSL(CURLUSESSL_ALL); }, {"USE_SSL=3"}},
    {"fileMethod", [](auto& r) { r.setFTPFileMethod(CURLFTPMETHOD_NOCWD); }, {"FTP_FILEMETHOD=2"}},
    {"createMissingDirs", [](auto& r) { r.setFTPCreateMissingDirs(CURLFTP_CREATE_DIR_RETRY); },
        {"FTP_CREATE_MISSING_DIRS=2"}},
    {"connectTimeoutTruncated", [](auto& r) { r.setConnectTimeout(microseconds(1500)); }, {"CONNECTTIMEOUT_MS=1"}},
    {"connectTimeoutInfinite", [](auto& r) { r.setConnectTimeout(kx::CTimeSpan::infinite()); },
        {"CONNECTTIMEOUT_MS=0"}},
    {"connectTimeoutBeyondInt", [](auto& r) { r.setConnectTimeout(kx::CTimeSpan::fromSeconds(1LL << 40)); },
        {"CONNECTTIMEOUT_MS=2147483647"}},
    {"fullTimeout", [](auto& r) { r.setFullRequestTimeout(kx::CTimeSpan::fromSeconds(2)); }, {"TIMEOUT_MS=2000"}},
    {"fullTimeoutTruncated", [](auto& r) { r.setFullRequestTimeout(microseconds(999)); }, {"TIMEOUT_MS=0"}},
    {"fullTimeoutInfinite", [](auto& r) { r.setFullRequestTimeout(kx::CTimeSpan::infinite()); }, {"TIMEOUT_MS=0"}},
    {"lowSpeedRoundedUp", [](auto& r) { r.setLowSpeedLimit(10, microseconds(1'200'000)); },
        {"LOW_SPEED_LIMIT=10", "LOW_SPEED_TIME=2"}},
    {"lowSpeedWholeSeconds", [](auto& r) { r.setLowSpeedLimit(10, microseconds(2'000'000)); },
        {"LOW_SPEED_LIMIT=10", "LOW_SPEED_TIME=2"}},
    {"lowSpeedOneMicrosecond", [](auto& r) { r.setLowSpeedLimit(10, microseconds(1)); },
        {"LOW_SPEED_LIMIT=10", "LOW_SPEED_TIME=1"}},
    {"lowSpeedOff", [](auto& r) { r.setLowSpeedLimit(0, microseconds(0)); }, {"LOW_SPEED_LIMIT=0", "LOW_SPEED_TIME=0"}},
    {"userName", [](auto& r) { r.setUserName("me"); }, {"USERNAME=me"}},
    {"userPassword", [](auto& r) { r.setUserPassword("pw"); }, {"PASSWORD=pw"}},
    {"proxy", [](auto& r) { r.setProxy("p:1"); }, {"PROXY=p:1"}},
    {"noProxy", [](auto& r) { r.setProxy(""); }, {"PROXY="}},
    {"rootCertBundlePath", [](auto& r) { r.setRootCertBundlePath("/etc/./ssl//x/../ca.crt"); },
        {"CAINFO=/etc/ssl/ca.crt"}},
    {"rootCertBundlePathOutsideASCII", [](auto& r) { r.setRootCertBundlePath("/\xFC.crt"); }, {"CAINFO=/\xC3\xBC.crt"}},
    {"rootCertBundlePathOfOtherBytes",
        [](auto& r) { r.setRootCertBundlePath(norla::CNetRequest::Path::fromBytes("/\xFC/\xC3\xBC.crt")); },
        {"CAINFO=/\xFC/\xC3\xBC.crt"}},
    {"rangeUpToTheEnd", [](auto& r) { r.setRange(100, -1); }, {"RANGE=100-"}},
    {"range", [](auto& r) { r.setRange(0, 10); }, {"RANGE=0-9"}},
    {"rangeBeyond32Bits", [](auto& r) { r.setRange(1LL << 40, 1); }, {"RANGE=1099511627776-1099511627776"}},
    {"rangeOfNothing", [](auto& r) { r.setRange(5, 0); }, {"RANGE=5-4"}},
    {"noHeaders", [](auto& r) { r.setCustomHTTPHeaders(nullptr); }, {"HTTPHEADER=null"}},
    {"noPreCommands", [](auto& r) { r.setFTPCustomPreCommands(nullptr); }, {"PREQUOTE=null"}},
    {"noPostCommands", [](auto& r) { r.setFTPCustomPostCommands(nullptr); }, {"POSTQUOTE=null"}},
    {"listCommand", [](auto& r) { r.setFTPListOverrideCommand("MLSD"); }, {"CUSTOMREQUEST=MLSD"}},
    {"noListCommand", [](auto& r) { r.setFTPListOverrideCommand(""); }, {"CUSTOMREQUEST=null"}},
    {"sendDataSize", [](auto& r) { r.setSendDataSize(1LL << 40); }, {"INFILESIZE_LARGE=1099511627776"}},
};

class CNetRequestSetterTest : public testing::TestWithParam<CSetterRow> {};

TEST_P(CNetRequestSetterTest, setsTheOption)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    support::CCurlCalls calls;
    GetParam().set(*request);
    EXPECT_EQ(calls.takeOptions(), GetParam().expected);
}

TEST_P(CNetRequestSetterTest, throwsWhenLibcurlRefusesTheOption)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    support::CCurlCalls calls;
    const std::string& text = GetParam().expected.back();
    const curl_easyoption* const option = curl_easy_option_by_name(text.substr(0, text.find('=')).c_str());
    calls.failOption(option->id, CURLE_UNKNOWN_OPTION);
    try {
        GetParam().set(*request);
        FAIL() << "no error";
    } catch (const norla::CCURLError& error) {
        EXPECT_EQ(error.getMessage(), "An unknown option was passed in to libcurl");
        EXPECT_EQ(error.getCode(), CURLE_UNKNOWN_OPTION);
        EXPECT_TRUE(error.getProps().getMap().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(All, CNetRequestSetterTest, testing::ValuesIn(setters),
    [](const testing::TestParamInfo<CSetterRow>& row) { return row.param.name; });

struct CMethodRow {
    const char* name;
    kx::String method;
    Options expected;
};

const std::vector<CMethodRow> methods = {
    {"none", "", {"CUSTOMREQUEST=null", "HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0"}},
    {"get", "GET", {"CUSTOMREQUEST=null", "NOBODY=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "HTTPGET=1"}},
    {"head", "HEAD", {"CUSTOMREQUEST=null", "HTTPGET=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "NOBODY=1"}},
    {"put", "PUT", {"CUSTOMREQUEST=null", "HTTPGET=0", "NOBODY=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "UPLOAD=1"}},
    {"post", "POST", {"CUSTOMREQUEST=null", "HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=1", "POSTFIELDSIZE_LARGE=-1"}},
    {"other", "DELETE",
        {"HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "CUSTOMREQUEST=DELETE"}},
    {"lowerCase", "get", {"HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "CUSTOMREQUEST=get"}},
};

class CNetRequestMethodTest : public testing::TestWithParam<CMethodRow> {};

TEST_P(CNetRequestMethodTest, switchesInItsOrder)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    support::CCurlCalls calls;
    request->setHTTPMethod(GetParam().method);
    EXPECT_EQ(calls.takeOptions(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, CNetRequestMethodTest, testing::ValuesIn(methods),
    [](const testing::TestParamInfo<CMethodRow>& row) { return row.param.name; });

TEST_F(CNetRequestOptionsTest, methodIsGETWhileNoneWasSet)
{
    EXPECT_EQ(request().getHTTPMethod(), "GET");
}

TEST_F(CNetRequestOptionsTest, methodIsKept)
{
    request().setHTTPMethod("COPY");
    EXPECT_EQ(request().getHTTPMethod(), "COPY");
}

TEST_F(CNetRequestOptionsTest, methodIsForgottenByReset)
{
    request().setHTTPMethod("COPY");
    request().reset();
    EXPECT_EQ(request().getHTTPMethod(), "GET");
}

TEST_F(CNetRequestOptionsTest, sizeSetBeforeTheMethodPOSTIsPassedOnWithIt)
{
    request().setSendDataSize(5);
    options();
    request().setHTTPMethod("POST");
    EXPECT_EQ(options().back(), "POSTFIELDSIZE_LARGE=5");
}

TEST_F(CNetRequestOptionsTest, sizeSetAfterTheMethodPOSTIsPassedOnAtOnce)
{
    request().setHTTPMethod("POST");
    options();
    request().setSendDataSize(5);
    EXPECT_EQ(options(), (Options{"INFILESIZE_LARGE=5", "POSTFIELDSIZE_LARGE=5"}));
}

TEST_F(CNetRequestOptionsTest, sizeIsForgottenByReset)
{
    request().setSendDataSize(5);
    request().reset();
    options();
    request().setHTTPMethod("POST");
    EXPECT_EQ(options().back(), "POSTFIELDSIZE_LARGE=-1");
}

TEST_F(CNetRequestOptionsTest, bufferTellsItsSize)
{
    const auto buffer = kx::newObj<norla::CNetRequest::Buffer>(size_t{7});
    request().setSendDataBuffer(buffer.get());
    EXPECT_EQ(options(), Options{"INFILESIZE_LARGE=7"});
}

TEST_F(CNetRequestOptionsTest, textTellsItsSizeInUTF8)
{
    request().setSendDataAsUTF8(L"\u00FC");
    EXPECT_EQ(options(), Options{"INFILESIZE_LARGE=2"});
}

TEST_F(CNetRequestOptionsTest, headersAreHandedOverAsAList)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("A", "1");
    headers->add("B", "2");
    request().setCustomHTTPHeaders(headers.get());
    EXPECT_EQ(options(), Options{"HTTPHEADER=[A: 1, B: 2]"});
    EXPECT_EQ(request().getCustomHTTPHeaders(), headers);
}

TEST_F(CNetRequestOptionsTest, headersAddedLaterAreHandedOverForTheNextTransfer)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    request().setCustomHTTPHeaders(headers.get());
    headers->add("A", "1");
    options();
    request().resetForPerform();
    EXPECT_EQ(options(), Options{"HTTPHEADER=[A: 1]"});
}

TEST_F(CNetRequestOptionsTest, headersStayWhenLibcurlRefusesOthers)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    request().setCustomHTTPHeaders(headers.get());
    calls().failOption(CURLOPT_HTTPHEADER);
    EXPECT_THROW(request().setCustomHTTPHeaders(nullptr), norla::CCURLError);
    EXPECT_EQ(request().getCustomHTTPHeaders(), headers);
}

TEST_F(CNetRequestOptionsTest, headersAreForgottenByReset)
{
    request().setCustomHTTPHeaders(kx::newObj<norla::CNetHeaders>().get());
    request().reset();
    EXPECT_EQ(request().getCustomHTTPHeaders(), nullptr);
}

TEST_F(CNetRequestOptionsTest, ftpCommandsAreHandedOverAsLists)
{
    const auto commands = kx::newObj<norla::CNetStringList>();
    commands->add("RNFR a");
    commands->add("RNTO b");
    request().setFTPCustomPreCommands(commands.get());
    request().setFTPCustomPostCommands(commands.get());
    EXPECT_EQ(options(), (Options{"PREQUOTE=[RNFR a, RNTO b]", "POSTQUOTE=[RNFR a, RNTO b]"}));
}

/// A list that tells whether it is still there.
class CWatchedList : public norla::CNetStringList {
public:
    explicit CWatchedList(bool& isAlive)
        : m_isAlive(isAlive)
    {
        m_isAlive = true;
    }
    ~CWatchedList() override { m_isAlive = false; }

private:
    bool& m_isAlive;
};

// libcurl keeps the lists as pointers and reads them only in an FTP transfer: what keeps them alive is watched itself.
struct CCommandSetter {
    const char* name;
    void (norla::CNetRequest::*set)(norla::CNetStringList*);
};

class CFTPCommandsTest : public CNetRequestOptionsTest, public testing::WithParamInterface<CCommandSetter> {
protected:
    void set(norla::CNetStringList* commands) { (request().*GetParam().set)(commands); }
    void setWatched() { set(kx::newObj<CWatchedList>(m_isAlive).get()); }

    bool m_isAlive = false;
};

TEST_P(CFTPCommandsTest, areKeptAlive)
{
    setWatched();
    EXPECT_TRUE(m_isAlive);
}

TEST_P(CFTPCommandsTest, areKeptOverATransfer)
{
    setWatched();
    request().resetForPerform();
    EXPECT_TRUE(m_isAlive);
}

TEST_P(CFTPCommandsTest, areDroppedByReset)
{
    setWatched();
    request().reset();
    EXPECT_FALSE(m_isAlive);
}

TEST_P(CFTPCommandsTest, areDroppedForNull)
{
    setWatched();
    set(nullptr);
    EXPECT_FALSE(m_isAlive);
}

INSTANTIATE_TEST_SUITE_P(All, CFTPCommandsTest,
    testing::Values(CCommandSetter{"beforeTheTransfer", &norla::CNetRequest::setFTPCustomPreCommands},
        CCommandSetter{"afterTheTransfer", &norla::CNetRequest::setFTPCustomPostCommands}),
    [](const testing::TestParamInfo<CCommandSetter>& row) { return std::string(row.param.name); });

TEST_F(CNetRequestOptionsTest, rangeBeyond64BitsIsRefused)
{
    try {
        request().setRange(std::numeric_limits<long long>::max(), 2);
        FAIL() << "no error";
    } catch (const kx::CInvalidArgError& error) {
        EXPECT_EQ(error.getMessage(),
            "Invalid argument passed to 'CNetRequest::setRange': the range from 9223372036854775807 on with a length "
            "of 2 is "
            "beyond 64 bits.");
    }
}

TEST_F(CNetRequestOptionsTest, textWithAZeroCharacterIsRefused)
{
    EXPECT_THROW(request().setUserName(kx::String(std::wstring(L"a\0b", 3))), kx::CInvalidArgError);
    EXPECT_EQ(options(), Options());
}

TEST_F(CNetRequestOptionsTest, infiniteLowSpeedTimeIsRefusedByLibcurl)
{
    EXPECT_THROW(request().setLowSpeedLimit(1, kx::CTimeSpan::infinite()), norla::CCURLError);
}

class CUserProxyTest : public CNetRequestOptionsTest {
protected:
    ~CUserProxyTest() override { norla::CProxySettings::getUserSettings()->clear(); }
};

TEST_F(CUserProxyTest, isTheOneOfTheURLsScheme)
{
    norla::CProxySettings::getUserSettings()->addProxiesFromString("http=p:1;ftp=q:2");
    request().setURL("ftp://h/");
    options();
    request().setProxyForCurrentURLFromUserSettings();
    EXPECT_EQ(options(), Options{"PROXY=q:2"});
}

TEST_F(CUserProxyTest, isSwitchedOffForADirectHost)
{
    norla::CProxySettings::getUserSettings()->addProxiesFromString("http=p:1");
    norla::CProxySettings::getUserSettings()->addDirectConnectHost("h");
    request().setURL("http://h:8080/x");
    options();
    request().setProxyForCurrentURLFromUserSettings();
    EXPECT_EQ(options(), Options{"PROXY="});
}

TEST(CNetRequestConstructionTest, failsWithoutEasyHandle)
{
    support::CCurlCalls calls;
    calls.fail("curl_easy_init");
    try {
        kx::newObj<norla::CNetRequest>();
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Error creating curl easy handle.");
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
    }
}

class CRefusedDefaultOptionTest : public testing::TestWithParam<CURLoption> {};

TEST_P(CRefusedDefaultOptionTest, failsTheConstructionAndFreesTheHandle)
{
    support::CCurlCalls calls;
    calls.failOption(GetParam(), CURLE_UNKNOWN_OPTION);
    EXPECT_THROW(kx::newObj<norla::CNetRequest>(), norla::CCURLError);
    EXPECT_EQ(calls.countOf("curl_easy_init"), 1);
    EXPECT_EQ(calls.countOf("curl_easy_cleanup"), 1);
}

INSTANTIATE_TEST_SUITE_P(All, CRefusedDefaultOptionTest,
    testing::Values(CURLOPT_ERRORBUFFER, CURLOPT_WRITEFUNCTION, CURLOPT_WRITEDATA, CURLOPT_READFUNCTION,
        CURLOPT_READDATA, CURLOPT_SEEKFUNCTION, CURLOPT_SEEKDATA, CURLOPT_HEADERFUNCTION, CURLOPT_HEADERDATA,
        CURLOPT_FOLLOWLOCATION, CURLOPT_NOSIGNAL, CURLOPT_CONNECTTIMEOUT_MS, CURLOPT_LOW_SPEED_LIMIT,
        CURLOPT_LOW_SPEED_TIME),
    [](const testing::TestParamInfo<CURLoption>& option) {
        return std::string(curl_easy_option_by_id(option.param)->name);
    });

struct CDomainRow {
    const char* name;
    kx::String url;
    kx::String domain;
};

class CResponseCodeDomainTest : public testing::TestWithParam<CDomainRow> {};

TEST_P(CResponseCodeDomainTest, followsFromTheScheme)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(GetParam().url);
    EXPECT_EQ(request->getResponseCodeDomain(), GetParam().domain);
}

INSTANTIATE_TEST_SUITE_P(All, CResponseCodeDomainTest,
    testing::ValuesIn(std::vector<CDomainRow>{
        {"http", "http://h/", "http"},
        {"https", "https://h/", "http"},
        {"mixedCase", "HttpS://h/", "http"},
        {"ftp", "ftp://h/", "ftp"},
        {"ftps", "ftps://h/", "ftp"},
        {"sftp", "sftp://h/", "ftp"},
        {"smtp", "smtp://h", "smtp"},
        {"smtps", "smtps://h", "smtp"},
        {"other", "file:///x", ""},
        {"onlyAPrefix", "httpx://h/", ""},
        {"noScheme", "host/http:", ""},
        {"empty", "", ""},
    }),
    [](const testing::TestParamInfo<CDomainRow>& row) { return row.param.name; });

TEST_F(CNetRequestOptionsTest, theApplicationsContextFunctionStaysForTLSOptions)
{
    const auto function = +[](CURL*, void*, void*) { return CURLE_OK; };
    request().setOptionPtr(CURLOPT_SSL_CTX_FUNCTION, reinterpret_cast<void*>(function));
    options();
    request().setTLSOptions({});
    const Options set = options();
    EXPECT_EQ(std::find(set.begin(), set.end(), "SSL_CTX_FUNCTION=set"), set.end());
}

TEST_F(CNetRequestOptionsTest, informationThatLibcurlRefusesIsAnError)
{
    calls().fail("curl_easy_getinfo");
    try {
        request().getResponseCode();
        FAIL() << "no error";
    } catch (const norla::CCURLError& error) {
        EXPECT_EQ(error.getCode(), CURLE_BAD_FUNCTION_ARGUMENT);
        EXPECT_TRUE(error.getProps().getMap().empty());
    }
}

TEST_F(CNetRequestOptionsTest, informationOfAnotherTypeIsRefused)
{
    EXPECT_THROW(request().getInfoLong(CURLINFO_EFFECTIVE_URL), norla::CCURLError);
    EXPECT_THROW(request().getInfoDouble(CURLINFO_RESPONSE_CODE), norla::CCURLError);
}

TEST_F(CNetRequestOptionsTest, urlEscapeEscapesAllButUnreservedBytes)
{
    EXPECT_EQ(request().urlEscape(L"a/b c-._~\u00FC"), "a%2Fb%20c-._~%C3%BC");
}

TEST_F(CNetRequestOptionsTest, urlEscapeOfNothingIsNothing)
{
    EXPECT_EQ(request().urlEscape(""), "");
}

TEST_F(CNetRequestOptionsTest, urlEscapeFailsWhenLibcurlDoes)
{
    calls().fail("curl_easy_escape");
    try {
        request().urlEscape("a");
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Error URL-escaping a string.");
        EXPECT_EQ(error.getCode(), -1);
    }
}

} // namespace
