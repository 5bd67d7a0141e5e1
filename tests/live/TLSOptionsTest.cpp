// How the two sides of a TLS connection prove who they are, with nginx and mail servers.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CTLSOptions.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"
#include "tests/support/pathOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
namespace {

using live::bodyOf;
using live::failureOf;
using live::messageOf;
using norla::CTLSOptions;
using support::CTestCertificates;
using support::pathOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The pin of a certificate's key, as the openssl program makes it.
std::string pinOf(const std::filesystem::path& certificate)
{
    const support::CProcessRun run({.arguments = {"sh", "-c",
                                        "openssl x509 -in \"$1\" -noout -pubkey | openssl pkey -pubin -outform DER"
                                        " | openssl dgst -sha256 -binary | openssl base64 -A",
                                        "sh", certificate},
        .package = "openssl"});
    return "sha256//" + run.output();
}

class TLSOptionsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    /// What believes nginx and nothing else.
    static CTLSOptions own() { return {.rootsFile = pathOf(CTestCertificates::get().caFile())}; }

    static CTLSOptions withClient()
    {
        CTLSOptions options = own();
        options.certificateFile = pathOf(CTestCertificates::get().clientCertificate());
        options.keyFile = pathOf(CTestCertificates::get().clientKey());
        return options;
    }

    static CTLSOptions pinning(const std::vector<std::string>& pins)
    {
        CTLSOptions options = own();
        for (const std::string& pin : pins)
            options.pinnedKeys.push_back(kx::String::fromUTF8(pin));
        return options;
    }

    static kx::P<norla::CNetRequest> requestFor(const std::string& url, const CTLSOptions& options)
    {
        auto request = live::requestFor(url);
        request->setTLSOptions(options);
        return request;
    }

    /// How the transfer of that URL ends.
    static std::string outcomeOf(const std::string& url, const CTLSOptions& options)
    {
        return messageOf(*requestFor(url, options));
    }

    static std::string outcomeBy(norla::CAsyncNetRequestThread& thread, norla::CNetRequest& request)
    {
        thread.addRequest(&request);
        EXPECT_TRUE(request.waitAsyncDone(60'000));
        const auto error = support::errorOf([&request] { request.checkAsyncResult(); });
        return error ? error->getMessage().toUTF8() : "success";
    }

    const support::CNginxServer& server() const { return *s_server; }
    const CTestCertificates& m_certificates = CTestCertificates::get();

private:
    static std::unique_ptr<support::CNginxServer> s_server;
};

std::unique_ptr<support::CNginxServer> TLSOptionsTest::s_server;

TEST_F(TLSOptionsTest, believeTheGivenRoots)
{
    EXPECT_EQ(outcomeOf(server().httpsURL("/digits.txt"), own()), "success");
}

TEST_F(TLSOptionsTest, believeNobodyElse)
{
    const auto request = requestFor(server().httpsURL("/digits.txt"), {});
    const auto error = failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_THAT(error->getMessage().toUTF8(),
        HasSubstr("unable to get local issuer certificate; the certificate is that "
                  "of \"CN = localhost\" (DNS:localhost, DNS:*.s3.localhost, IP Address:127.0.0.1), "
                  "issued by \"CN = test authority\", valid from "));
}

TEST_F(TLSOptionsTest, believeAFolderOfRoots)
{
    const support::CTemporaryFolder folder;
    std::filesystem::copy_file(m_certificates.caFile(), folder.path() / "ca.pem");
    ASSERT_EQ(support::CProcessRun({"openssl", "rehash", folder.path()}).exitStatus(), 0);
    EXPECT_EQ(outcomeOf(server().httpsURL("/digits.txt"), {.rootsFolder = pathOf(folder.path())}), "success");
}

TEST_F(TLSOptionsTest, tellThatACertificateHasExpired)
{
    const std::string message = outcomeOf(server().expiredURL("/digits.txt"), own());
    EXPECT_THAT(message, HasSubstr("certificate has expired; the certificate is that of \"CN = localhost\""));
    EXPECT_THAT(message, HasSubstr(" GMT until "));
}

TEST_F(TLSOptionsTest, tellForWhomACertificateIs)
{
    EXPECT_THAT(outcomeOf(server().wrongHostURL("/digits.txt"), own()),
        HasSubstr("; the certificate is that of \"CN = wrong.example\" (DNS:wrong.example), issued by "));
}

TEST_F(TLSOptionsTest, believeAnExpiredCertificateWhenTold)
{
    EXPECT_EQ(outcomeOf(server().expiredURL("/digits.txt"), {.verifyCertificate = false}), "success");
}

TEST_F(TLSOptionsTest, believeNoOtherHostWhereTheCertificateNeedNotBeGood)
{
    EXPECT_THAT(outcomeOf(server().wrongHostURL("/digits.txt"), {.verifyCertificate = false}),
        HasSubstr("; the certificate is that of \"CN = wrong.example\""));
}

TEST_F(TLSOptionsTest, believeAnotherHostWhenTold)
{
    CTLSOptions options = own();
    options.verifyHostName = false;
    EXPECT_EQ(outcomeOf(server().wrongHostURL("/digits.txt"), options), "success");
    EXPECT_NE(outcomeOf(server().expiredURL("/digits.txt"), options), "success");
}

TEST_F(TLSOptionsTest, tellMoreInTheBackgroundToo)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto request = requestFor(server().expiredURL("/digits.txt"), own());
    EXPECT_THAT(outcomeBy(*thread, *request), HasSubstr("; the certificate is that of \"CN = localhost\""));
}

TEST_F(TLSOptionsTest, takeOneOfThePinnedKeys)
{
    const std::string right = pinOf(m_certificates.serverCertificate());
    const std::string wrong = pinOf(m_certificates.clientCertificate());
    EXPECT_EQ(outcomeOf(server().httpsURL("/digits.txt"), pinning({right})), "success");
    EXPECT_EQ(outcomeOf(server().httpsURL("/digits.txt"), pinning({wrong, right})), "success");
}

TEST_F(TLSOptionsTest, tellWhichKeyCameInPlaceOfThePinnedOnes)
{
    const std::string came = pinOf(m_certificates.serverCertificate());
    const std::string wrong = pinOf(m_certificates.clientCertificate());
    const std::string other = pinOf(m_certificates.caFile());
    const auto request = requestFor(server().httpsURL("/digits.txt"), pinning({wrong, other}));
    const auto error = failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SSL_PINNEDPUBKEYNOTMATCH);
    EXPECT_THAT(error->getMessage().toUTF8(),
        HasSubstr("; expected " + wrong + " or " + other + ", came " + came + ", the key of \"CN = localhost\""));
}

TEST_F(TLSOptionsTest, showAClientCertificate)
{
    const auto request = requestFor(server().mutualURL("/client"), withClient());
    EXPECT_EQ(messageOf(*request), "success");
    EXPECT_EQ(bodyOf(*request), "CN=client");
}

TEST_F(TLSOptionsTest, showAClientCertificateWhoseKeyHasAPassword)
{
    CTLSOptions options = withClient();
    options.keyFile = pathOf(m_certificates.encryptedClientKey());
    options.keyPassword = "open sesame";
    const auto request = requestFor(server().mutualURL("/client"), options);
    EXPECT_EQ(messageOf(*request), "success");
    EXPECT_EQ(bodyOf(*request), "CN=client");
}

TEST_F(TLSOptionsTest, showAClientCertificateOfAPKCS12File)
{
    CTLSOptions options = own();
    options.certificateFile = pathOf(m_certificates.clientPKCS12());
    options.certificateFormat = norla::CertificateFormat::PKCS12;
    options.keyPassword = "open sesame";
    const auto request = requestFor(server().mutualURL("/client"), options);
    EXPECT_EQ(messageOf(*request), "success");
    EXPECT_EQ(bodyOf(*request), "CN=client");
}

TEST_F(TLSOptionsTest, useNoConnectionThatWasMadeAsSomebodyElse)
{
    const auto request = requestFor(server().mutualURL("/client"), withClient());
    request->perform();
    request->setTLSOptions(own());
    const auto error = failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "400") << error->getMessage();
}

TEST_F(TLSOptionsTest, useNoConnectionThatWasMadeAsSomebodyElseInTheBackground)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto first = requestFor(server().mutualURL("/client"), withClient());
    EXPECT_EQ(outcomeBy(*thread, *first), "success");
    const auto second = requestFor(server().mutualURL("/client"), own());
    EXPECT_THAT(outcomeBy(*thread, *second), HasSubstr("400"));
}

TEST_F(TLSOptionsTest, useNoConnectionThatBelievedMore)
{
    const std::string url = server().httpsURL("/digits.txt");
    const std::string wrong = pinOf(m_certificates.clientCertificate());
    for (const CTLSOptions& options : {CTLSOptions(), pinning({wrong})}) {
        const auto request = requestFor(url, {.verifyCertificate = false});
        request->perform();
        request->setTLSOptions(options);
        EXPECT_NE(messageOf(*request), "success");
    }
}

TEST_F(TLSOptionsTest, useNoConnectionThatBelievedMoreInTheBackground)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const std::string url = server().httpsURL("/digits.txt");
    const auto first = requestFor(url, {.verifyCertificate = false});
    EXPECT_EQ(outcomeBy(*thread, *first), "success");
    for (const CTLSOptions& options : {CTLSOptions(), pinning({pinOf(m_certificates.clientCertificate())})}) {
        const auto second = requestFor(url, options);
        EXPECT_NE(outcomeBy(*thread, *second), "success");
    }
}

TEST_F(TLSOptionsTest, useAConnectionAgainThatBelievedTheSame)
{
    const auto request = requestFor(server().httpsURL("/digits.txt"), own());
    request->perform();
    request->setTLSOptions(own());
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(TLSOptionsTest, speakNothingOlderThanTold)
{
    CTLSOptions options = own();
    EXPECT_THAT(outcomeOf(server().oldTLSURL("/digits.txt"), options), HasSubstr("; TLS 1.2 or later is demanded"));
    options.leastVersion = norla::TLSVersion::TLS1_1;
    const auto request = requestFor(server().oldTLSURL("/digits.txt"), options);
    request->setOptionString(CURLOPT_SSL_CIPHER_LIST, "ALL:@SECLEVEL=0"); // the system's OpenSSL demands more
    EXPECT_EQ(messageOf(*request), "success");
}

TEST_F(TLSOptionsTest, speakTheNewest)
{
    CTLSOptions options = withClient();
    options.leastVersion = norla::TLSVersion::TLS1_3;
    EXPECT_EQ(outcomeOf(server().mutualURL("/digits.txt"), options), "success");
}

TEST_F(TLSOptionsTest, areGoneAfterAReset)
{
    const auto request
        = requestFor(server().httpsURL("/digits.txt"), pinning({pinOf(m_certificates.clientCertificate())}));
    EXPECT_NE(messageOf(*request), "success");
    request->reset();
    request->setURL(kx::String::fromUTF8(server().httpsURL("/digits.txt")));
    request->setRootCertBundlePath(pathOf(m_certificates.caFile()));
    EXPECT_EQ(messageOf(*request), "success");
    request->setURL(kx::String::fromUTF8(server().expiredURL("/digits.txt")));
    EXPECT_THAT(messageOf(*request), Not(HasSubstr("; the certificate is")));
    request->setURL(kx::String::fromUTF8(server().oldTLSURL("/digits.txt")));
    request->setOptionInt(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
    EXPECT_THAT(messageOf(*request), AllOf(HasSubstr("protocol"), Not(HasSubstr("is demanded"))));
}

TEST_F(TLSOptionsTest, leaveTheRequestUsableWhenTheyAreRefused)
{
    const auto request = requestFor(server().httpsURL("/digits.txt"), own());
    EXPECT_NE(support::errorOf([&] { request->setTLSOptions({.pinnedKeys = {"garbage"}}); }), nullptr);
    EXPECT_EQ(messageOf(*request), "success");
}

/// A mail over STARTTLS, of which libcurl does not ask whom the connection believes.
class UpgradedTLSOptionsTest : public testing::Test {
protected:
    void prepare(norla::CNetRequest& request, const CTLSOptions& options) const
    {
        live::prepareMail(
            request, m_server.getPort(), norla::CSMTPParams::ConnectStartTLS, "Subject: 1\r\n\r\ntext\r\n");
        request.setTLSOptions(options);
    }

    const support::CSMTPServer m_server{{.security = support::CSMTPServer::Security::StartTLS}};
};

TEST_F(UpgradedTLSOptionsTest, useNoConnectionThatBelievedMore)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    prepare(*request, {.verifyCertificate = false});
    request->perform();
    prepare(*request, {});
    const auto error = failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(UpgradedTLSOptionsTest, useNoConnectionThatBelievedMoreInTheBackground)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto perform = [&](const CTLSOptions& options) {
        const auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, options);
        thread->addRequest(request.get());
        EXPECT_TRUE(request->waitAsyncDone(60'000));
        const auto error = support::errorOf([&request] { request->checkAsyncResult(); });
        return error ? error->getCode() : 0;
    };
    EXPECT_EQ(perform({.verifyCertificate = false}), 0);
    EXPECT_EQ(perform({}), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(UpgradedTLSOptionsTest, useAConnectionAgainThatBelievedTheSame)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    for (int i = 0; i < 2; ++i) {
        prepare(*request, {.rootsFile = pathOf(CTestCertificates::get().caFile())});
        request->perform();
    }
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

} // namespace
