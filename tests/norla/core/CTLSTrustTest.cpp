#include "norla/core/CTLSTrust.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"
#include "tests/support/pathOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using norla::CTLSOptions;
using support::pathOf;
using testing::Contains;
using testing::Not;
using testing::StartsWith;
using Texts = std::vector<std::string>;

const kx::String pin = "sha256//47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=";
const kx::String anotherPin = "sha256//AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=";

CURLcode acceptContext(CURL* /*handle*/, void* /*context*/, void* /*data*/)
{
    return CURLE_OK;
}

class CTLSTrustTest : public testing::Test {
protected:
    Texts set(const CTLSOptions& options)
    {
        m_calls.takeOptions();
        m_trust.set(options);
        return m_calls.takeOptions();
    }

    kx::String messageFor(const CTLSOptions& options)
    {
        return support::messageOf([&] { m_trust.set(options); });
    }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CTLSTrust m_trust{m_handle};
    const support::CTestCertificates& m_certificates = support::CTestCertificates::get();
    const support::CTemporaryFolder m_folder;
};

TEST_F(CTLSTrustTest, isAsSafeAsItCanBeForEverybodyByItself)
{
    const char* roots = nullptr;
    ASSERT_TRUE(m_handle.ask(CURLINFO_CAINFO, roots));
    const Texts options = set({});
    EXPECT_THAT(options, Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_2)));
    EXPECT_THAT(options, Contains("SSL_VERIFYPEER=1"));
    EXPECT_THAT(options, Contains("SSL_VERIFYHOST=2"));
    EXPECT_THAT(options, Contains("CAINFO=" + std::string(roots ? roots : "null")));
    EXPECT_THAT(options, Contains("SSLCERT=null"));
    EXPECT_THAT(options, Contains("PINNEDPUBLICKEY=null"));
    EXPECT_THAT(options, Not(Contains(StartsWith("KEYPASSWD")))) << "which is set when a transfer begins";
}

TEST_F(CTLSTrustTest, believesTheGivenRootsAlone)
{
    const auto roots = m_certificates.caFile();
    Texts options = set({.rootsFile = pathOf(roots)});
    EXPECT_THAT(options, Contains("CAINFO=" + roots.string()));
    EXPECT_THAT(options, Contains("CAPATH=null"));
    options = set({.rootsFolder = pathOf(m_folder.path())});
    EXPECT_THAT(options, Contains("CAINFO=null"));
    EXPECT_THAT(options, Contains("CAPATH=" + m_folder.path().string()));
}

TEST_F(CTLSTrustTest, takesEveryVersion)
{
    using norla::TLSVersion;
    for (const auto& [version, option] : std::map<TLSVersion, long>{{TLSVersion::TLS1_0, CURL_SSLVERSION_TLSv1_0},
             {TLSVersion::TLS1_1, CURL_SSLVERSION_TLSv1_1}, {TLSVersion::TLS1_3, CURL_SSLVERSION_TLSv1_3}})
        EXPECT_THAT(set({.leastVersion = version}), Contains("SSLVERSION=" + std::to_string(option)));
}

TEST_F(CTLSTrustTest, verifiesAsMuchAsItIsTold)
{
    const Texts options = set({.verifyCertificate = false, .verifyHostName = false});
    EXPECT_THAT(options, Contains("SSL_VERIFYPEER=0"));
    EXPECT_THAT(options, Contains("SSL_VERIFYHOST=0"));
}

TEST_F(CTLSTrustTest, showsACertificate)
{
    const Texts options = set(
        {.certificateFile = pathOf(m_certificates.clientCertificate()), .keyFile = pathOf(m_certificates.clientKey())});
    EXPECT_THAT(options, Contains("SSLCERT=" + m_certificates.clientCertificate().string()));
    EXPECT_THAT(options, Contains("SSLKEY=" + m_certificates.clientKey().string()));
    EXPECT_THAT(options, Contains("SSLCERTTYPE=PEM"));
}

TEST_F(CTLSTrustTest, showsACertificateOfAPKCS12File)
{
    const Texts options = set({.certificateFile = pathOf(m_certificates.clientPKCS12()),
        .keyPassword = "open sesame",
        .certificateFormat = norla::CertificateFormat::PKCS12});
    EXPECT_THAT(options, Contains("SSLCERT=" + m_certificates.clientPKCS12().string()));
    EXPECT_THAT(options, Contains("SSLCERTTYPE=P12"));
}

TEST_F(CTLSTrustTest, pinsSeveralKeys)
{
    EXPECT_THAT(
        set({.pinnedKeys = {pin, anotherPin}}), Contains("PINNEDPUBLICKEY=" + (pin + ";" + anotherPin).toUTF8()));
}

TEST_F(CTLSTrustTest, replacesWhatWasSetBefore)
{
    set({.rootsFile = pathOf(m_certificates.caFile()),
        .certificateFile = pathOf(m_certificates.clientCertificate()),
        .keyFile = pathOf(m_certificates.clientKey()),
        .pinnedKeys = {pin}});
    norla::CEasyHandle newHandle;
    norla::CTLSTrust another(newHandle);
    m_calls.takeOptions();
    another.set({});
    const Texts ofANewOne = m_calls.takeOptions();
    EXPECT_EQ(set({}), ofANewOne);
}

TEST_F(CTLSTrustTest, refusesPinsThatAreNone)
{
    const kx::String end = "' is not \"sha256//\" and a SHA-256 digest in Base64.";
    for (const kx::String& text : {kx::String(), kx::String("key.pem"), pin.substr(8), pin.substr(0, pin.size() - 1),
             pin + ";" + pin, kx::String("sha256//") + pin.substr(8).replaceAll("+", "-"), kx::String("sha256//AAAA"),
             kx::String("SHA256:") + pin.substr(8), kx::String("sha512//") + pin.substr(8)})
        EXPECT_EQ(messageFor({.pinnedKeys = {pin, text}}),
            "Invalid argument passed to 'CNetRequest::setTLSOptions': the pinned key '" + text + end);
}

TEST_F(CTLSTrustTest, refusesFilesThatCannotBeUsed)
{
    const auto missing = m_folder.path() / "missing";
    const kx::String reason
        = "The file '" + pathOf(missing).toString() + "' cannot be read: No such file or directory.";
    EXPECT_EQ(messageFor({.rootsFile = pathOf(missing)}), reason);
    EXPECT_EQ(messageFor({.certificateFile = pathOf(missing)}), reason);
    EXPECT_EQ(messageFor({.certificateFile = pathOf(m_certificates.clientCertificate()), .keyFile = pathOf(missing)}),
        reason);
    EXPECT_EQ(messageFor({.certificateFile = pathOf(missing), .certificateFormat = norla::CertificateFormat::PKCS12}),
        reason);
}

TEST_F(CTLSTrustTest, refusesAFolderThatIsNone)
{
    const kx::String start = "The folder '";
    const auto missing = pathOf(m_folder.path() / "missing");
    EXPECT_EQ(messageFor({.rootsFolder = missing}),
        start + missing.toString() + "' cannot be used: No such file or directory.");
    const auto file = pathOf(m_folder.write("file", ""));
    EXPECT_EQ(messageFor({.rootsFolder = file}), start + file.toString() + "' cannot be used: Not a directory.");
    const CTLSOptions::Path zero(kx::String(std::wstring(L"/\0", 2)));
    EXPECT_TRUE(messageFor({.rootsFolder = zero}).endsWith("cannot be used: Invalid argument."));
}

TEST_F(CTLSTrustTest, refusesAKeyWithoutACertificate)
{
    const auto key = pathOf(m_certificates.clientKey());
    EXPECT_TRUE(
        messageFor({.keyFile = key}).endsWith("the key '" + key.toString() + "' is given without a certificate."));
}

TEST_F(CTLSTrustTest, refusesAKeyBesideAPKCS12File)
{
    const auto key = pathOf(m_certificates.clientKey());
    EXPECT_TRUE(messageFor({.certificateFile = pathOf(m_certificates.clientPKCS12()),
                               .keyFile = key,
                               .keyPassword = "open sesame",
                               .certificateFormat = norla::CertificateFormat::PKCS12})
                    .endsWith("beside a PKCS#12 file, which has its own."));
}

TEST_F(CTLSTrustTest, refusesALineEndInAPasswordWithoutNamingIt)
{
    const kx::String message = messageFor({.keyPassword = "secret\n"});
    EXPECT_TRUE(message.endsWith("the text for CURLOPT_KEYPASSWD contains a line end.")) << message;
}

TEST_F(CTLSTrustTest, setsNothingWhereSomethingIsRefused)
{
    m_calls.takeOptions();
    messageFor({.pinnedKeys = {"garbage"}, .verifyCertificate = false});
    EXPECT_EQ(m_calls.takeOptions(), Texts());
    EXPECT_FALSE(m_trust.isSet());
}

TEST_F(CTLSTrustTest, leavesAnApplicationsOwnContextFunctionAlone)
{
    EXPECT_THAT(set({}), Contains("SSL_CTX_FUNCTION=set"));
    m_trust.noticePointer(CURLOPT_SSL_CTX_FUNCTION, reinterpret_cast<void*>(&acceptContext));
    EXPECT_THAT(set({}), Not(Contains(StartsWith("SSL_CTX_"))));
    m_trust.noticePointer(CURLOPT_SSL_CTX_FUNCTION, nullptr);
    EXPECT_THAT(set({}), Contains("SSL_CTX_FUNCTION=set"));
}

TEST_F(CTLSTrustTest, leavesAnApplicationsOwnContextFunctionItsData)
{
    int data = 0;
    const auto setAsApplication = [this](CURLoption option, void* value) {
        m_handle.set(option, value);
        m_trust.noticePointer(option, value);
    };
    set({});
    void* const own = m_calls.pointerOf(CURLOPT_SSL_CTX_DATA);
    setAsApplication(CURLOPT_SSL_CTX_DATA, &data);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_SSL_CTX_DATA), own);
    setAsApplication(CURLOPT_SSL_CTX_FUNCTION, reinterpret_cast<void*>(&acceptContext));
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_SSL_CTX_FUNCTION), reinterpret_cast<void*>(&acceptContext));
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_SSL_CTX_DATA), &data);
}

TEST_F(CTLSTrustTest, isDescribedByAllThatMatters)
{
    EXPECT_EQ(m_trust.getDescription(), "");
    std::set<std::string> all;
    const auto ca = pathOf(m_certificates.caFile());
    const auto folder = pathOf(m_folder.path());
    const auto certificate = pathOf(m_certificates.clientCertificate());
    const auto key = pathOf(m_certificates.clientKey());
    const std::vector<CTLSOptions> values{{}, {.leastVersion = norla::TLSVersion::TLS1_3}, {.rootsFile = ca},
        {.rootsFolder = folder}, {.certificateFile = certificate, .keyFile = key}, {.pinnedKeys = {pin}},
        {.verifyCertificate = false}, {.verifyHostName = false}};
    for (const CTLSOptions& options : values) {
        set(options);
        all.insert(m_trust.getDescription());
    }
    EXPECT_EQ(all.size(), values.size());
    m_trust.forgetOptions();
    EXPECT_EQ(m_trust.getDescription(), "");
}

TEST_F(CTLSTrustTest, forgetsTheCertificateOfTheTransferBefore)
{
    support::CScriptedServer server;
    server.onConnection()
        .startTLS(m_certificates.serverCertificate(), m_certificates.serverKey())
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    set({.rootsFile = pathOf(m_certificates.caFile())});
    m_handle.setText(CURLOPT_URL, "https://127.0.0.1:" + std::to_string(server.getPort()) + "/");
    ASSERT_EQ(curl_easy_perform(m_handle.get()), CURLE_OK);
    EXPECT_NE(m_trust.explain(CURLE_PEER_FAILED_VERIFICATION, ""), "");
    m_trust.begin();
    EXPECT_EQ(m_trust.explain(CURLE_PEER_FAILED_VERIFICATION, ""), "");
}

TEST_F(CTLSTrustTest, explainsNothingWhereNothingWasTold)
{
    EXPECT_EQ(m_trust.explain(CURLE_SSL_CONNECT_ERROR, "unsupported protocol"), "");
    set({});
    EXPECT_EQ(m_trust.explain(CURLE_SSL_CONNECT_ERROR, "unsupported protocol"), "TLS 1.2 or later is demanded");
    m_trust.forgetOptions();
    EXPECT_EQ(m_trust.explain(CURLE_SSL_CONNECT_ERROR, "unsupported protocol"), "");
    set({});
    EXPECT_EQ(m_trust.explain(CURLE_SSL_CONNECT_ERROR, "reset"), "");
    EXPECT_EQ(m_trust.explain(CURLE_PEER_FAILED_VERIFICATION, ""), "") << "without a certificate";
}

TEST_F(CTLSTrustTest, demandsProofOfThoseWhoAreKnownAlready)
{
    set({.leastVersion = norla::TLSVersion::TLS1_0,
        .rootsFile = pathOf(m_certificates.caFile()),
        .verifyCertificate = false,
        .verifyHostName = false});
    m_calls.takeOptions();
    const std::string before = m_trust.getDescription();
    m_trust.demandProof();
    const Texts options = m_calls.takeOptions();
    EXPECT_THAT(options, Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_2)));
    EXPECT_THAT(options, Contains("SSL_VERIFYPEER=1"));
    EXPECT_THAT(options, Contains("SSL_VERIFYHOST=2"));
    EXPECT_THAT(options, Not(Contains(StartsWith("CAINFO"))));
    EXPECT_NE(m_trust.getDescription(), before);
}

TEST_F(CTLSTrustTest, demandsNoOlderVersionForThat)
{
    set({.leastVersion = norla::TLSVersion::TLS1_3});
    m_calls.takeOptions();
    m_trust.demandProof();
    EXPECT_THAT(m_calls.takeOptions(), Contains("SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_3)));
    EXPECT_TRUE(m_trust.isSet());
}

} // namespace
