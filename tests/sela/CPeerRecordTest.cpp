#include "sela/CPeerRecord.h"

#include "sela/base64.h"
#include "tests/support/CIdentity.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/openSSLError.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/ssl.h>

#include <array>
#include <cstdio>

namespace {

using sela::CPeerRecord;
using support::CIdentity;

using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using Session = std::unique_ptr<SSL, decltype(&SSL_free)>;

Context newContext(const SSL_METHOD* method)
{
    return {support::checkedOpenSSL(SSL_CTX_new(method), "SSL_CTX_new"), &SSL_CTX_free};
}

Session newSession(const Context& context)
{
    return {support::checkedOpenSSL(SSL_new(context.get()), "SSL_new"), &SSL_free};
}

/// "sha256//" and the digest of the key of a certificate in a file.
kx::String pinOf(const std::filesystem::path& file)
{
    const std::unique_ptr<FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "re"), &std::fclose);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        PEM_read_X509(stream.get(), nullptr, nullptr, nullptr), &X509_free);
    std::array<unsigned char, 1024> key{};
    unsigned char* end = key.data();
    const int size = i2d_PUBKEY(X509_get0_pubkey(certificate.get()), &end);
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(key.data(), static_cast<size_t>(size), digest.data());
    return "sha256//" + sela::base64Encode(digest.data(), digest.size(), true, false);
}

/// A client that believes one authority, and servers that it has never seen, on a connection in memory.
class CPeerRecordTest : public testing::Test {
protected:
    CPeerRecordTest()
    {
        m_authority.writeCertificate(path("ca"));
        support::checkOpenSSL(SSL_CTX_load_verify_file(m_client.get(), path("ca").c_str()), "authority");
        SSL_CTX_set_verify(m_client.get(), SSL_VERIFY_PEER, nullptr);
    }

    std::filesystem::path path(const char* name) const { return m_folder.path() / name; }

    /// @return whether the client has accepted the server's certificate
    bool accepts(const CIdentity& server)
    {
        server.writeCertificate(path("server"));
        server.writeKey(path("key"));
        const Context context = newContext(TLS_server_method());
        SSL_CTX_use_certificate_file(context.get(), path("server").c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(context.get(), path("key").c_str(), SSL_FILETYPE_PEM);
        const Session client = newSession(m_client);
        const Session other = newSession(context);
        connect(*client, *other);
        constexpr int mostTurns = 10;
        for (int i = 0; i < mostTurns && !SSL_is_init_finished(client.get()); ++i) {
            SSL_connect(client.get());
            SSL_accept(other.get());
        }
        return SSL_is_init_finished(client.get());
    }

    static void connect(SSL& client, SSL& server)
    {
        BIO* clients = nullptr;
        BIO* servers = nullptr;
        support::checkOpenSSL(BIO_new_bio_pair(&clients, 0, &servers, 0), "BIO_new_bio_pair");
        SSL_set_bio(&client, clients, clients);
        SSL_set_bio(&server, servers, servers);
    }

    CPeerRecord::CCertificate seen() const
    {
        const auto certificate = m_record->get();
        EXPECT_TRUE(certificate) << "nothing was noticed";
        return certificate ? *certificate : CPeerRecord::CCertificate();
    }

    const support::CTemporaryFolder m_folder;
    const CIdentity m_authority{{.commonName = "authority", .isAuthority = true}};
    const CIdentity m_fine{{.commonName = "fine"}, &m_authority};
    const CIdentity m_stranger{{.commonName = "stranger"}};
    const Context m_client = newContext(TLS_client_method());
    const std::shared_ptr<CPeerRecord> m_record = std::make_shared<CPeerRecord>();
};

TEST_F(CPeerRecordTest, isEmptyBeforeAConnection)
{
    EXPECT_TRUE(CPeerRecord::watch(m_client.get(), m_record));
    EXPECT_FALSE(m_record->get());
}

TEST_F(CPeerRecordTest, noticesWhoWasNotAccepted)
{
    CPeerRecord::watch(m_client.get(), m_record);
    EXPECT_FALSE(accepts(m_stranger));
    EXPECT_EQ(seen().subject, "CN = stranger");
}

TEST_F(CPeerRecordTest, noticesTheServerWhoseAuthorityWasNotAccepted)
{
    const CIdentity expired({.commonName = "expired authority", .isAuthority = true, .validTo = -60});
    expired.writeCertificate(path("expired"));
    support::checkOpenSSL(SSL_CTX_load_verify_file(m_client.get(), path("expired").c_str()), "authority");
    CPeerRecord::watch(m_client.get(), m_record);
    EXPECT_FALSE(accepts(CIdentity({.commonName = "server"}, &expired)));
    EXPECT_EQ(seen().subject, "CN = server");
}

TEST_F(CPeerRecordTest, noticesWhoWasAccepted)
{
    CPeerRecord::watch(m_client.get(), m_record);
    EXPECT_TRUE(accepts(m_fine));
    EXPECT_EQ(seen().subject, "CN = fine");
}

TEST_F(CPeerRecordTest, noticesWhoIsBelievedByHimself)
{
    m_stranger.writeCertificate(path("believed"));
    support::checkOpenSSL(SSL_CTX_load_verify_file(m_client.get(), path("believed").c_str()), "certificate");
    CPeerRecord::watch(m_client.get(), m_record);
    EXPECT_TRUE(accepts(m_stranger));
    EXPECT_EQ(seen().subject, "CN = stranger");
}

TEST_F(CPeerRecordTest, noticesTheLastOfSeveral)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(m_fine);
    accepts(m_stranger);
    EXPECT_EQ(seen().subject, "CN = stranger");
}

TEST_F(CPeerRecordTest, forgets)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(m_fine);
    m_record->forget();
    EXPECT_FALSE(m_record->get());
}

TEST_F(CPeerRecordTest, knowsTheIssuer)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(m_fine);
    EXPECT_EQ(seen().issuer, "CN = authority");
}

TEST_F(CPeerRecordTest, knowsAllNames)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(CIdentity({.commonName = "x", .subjectAltName = "DNS:localhost,IP:127.0.0.1,email:a@b"}));
    EXPECT_EQ(seen().names, "DNS:localhost, IP Address:127.0.0.1, email:a@b");
}

TEST_F(CPeerRecordTest, knowsThatThereAreNoNames)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(m_stranger);
    EXPECT_EQ(seen().names, "");
}

TEST_F(CPeerRecordTest, knowsThePinOfTheKey)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(m_stranger);
    EXPECT_EQ(seen().publicKeyPin, pinOf(path("server")));
}

TEST_F(CPeerRecordTest, knowsHowLongTheCertificateIsValid)
{
    constexpr long year = 365L * 24 * 3600;
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(CIdentity({.commonName = "x", .validFrom = -3 * year, .validTo = -year}));
    EXPECT_TRUE(seen().validFrom.endsWith(" GMT")) << seen().validFrom;
    EXPECT_TRUE(seen().validUntil.endsWith(" GMT")) << seen().validUntil;
    const auto yearOf = [](const kx::String& text) { return std::stoi(text.substr(text.size() - 8, 4).toUTF8()); };
    EXPECT_EQ(yearOf(seen().validUntil) - yearOf(seen().validFrom), 2);
}

TEST_F(CPeerRecordTest, cutsOffWhatIsLongerThan300Characters)
{
    CPeerRecord::watch(m_client.get(), m_record);
    accepts(CIdentity({.commonName = "x", .subjectAltName = "DNS:" + std::string(296, 'a')}));
    EXPECT_EQ(seen().names, kx::String::fromLatin1("DNS:" + std::string(296, 'a')));
    accepts(CIdentity({.commonName = "x", .subjectAltName = "DNS:" + std::string(297, 'a')}));
    EXPECT_EQ(seen().names, kx::String::fromLatin1("DNS:" + std::string(296, 'a') + "..."));
}

TEST_F(CPeerRecordTest, isWrittenAlsoWhenNobodyElseHasIt)
{
    std::weak_ptr<CPeerRecord> record;
    {
        const auto own = std::make_shared<CPeerRecord>();
        CPeerRecord::watch(m_client.get(), own);
        record = own;
    }
    accepts(m_stranger);
    const auto kept = record.lock();
    ASSERT_TRUE(kept);
    EXPECT_TRUE(kept->get());
}

TEST_F(CPeerRecordTest, goesWithTheContext)
{
    const std::weak_ptr<CPeerRecord> record = [] {
        auto own = std::make_shared<CPeerRecord>();
        CPeerRecord::watch(newContext(TLS_client_method()).get(), own);
        return own;
    }();
    EXPECT_TRUE(record.expired());
}

TEST_F(CPeerRecordTest, leavesTheJudgementOfSomebodyElseAlone)
{
    SSL_CTX_set_verify(m_client.get(), SSL_VERIFY_PEER, [](int, X509_STORE_CTX*) { return 1; });
    EXPECT_TRUE(CPeerRecord::watch(m_client.get(), m_record));
    EXPECT_TRUE(accepts(m_stranger));
}

TEST_F(CPeerRecordTest, noticesAlsoWhereEverybodyIsAccepted)
{
    CPeerRecord::watch(m_client.get(), m_record);
    SSL_CTX_set_verify(m_client.get(), SSL_VERIFY_NONE, SSL_CTX_get_verify_callback(m_client.get()));
    EXPECT_TRUE(accepts(m_stranger));
    EXPECT_EQ(seen().subject, "CN = stranger");
}

TEST(CPeerRecordVersionTest, isThatOfTheOpenSSLInUse)
{
    const std::string version = OpenSSL_version(OPENSSL_VERSION_STRING);
    EXPECT_TRUE(CPeerRecord::canWatch("OpenSSL/" + version));
    EXPECT_FALSE(CPeerRecord::canWatch("OpenSSL/" + version + "1"));
    EXPECT_FALSE(CPeerRecord::canWatch("OpenSSL/"));
    EXPECT_FALSE(CPeerRecord::canWatch("GnuTLS/" + version));
    EXPECT_FALSE(CPeerRecord::canWatch(""));
}

} // namespace
