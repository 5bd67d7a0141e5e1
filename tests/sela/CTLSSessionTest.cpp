#include "sela/CTLSSession.h"

#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <memory>

namespace {

using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using Side = std::unique_ptr<SSL, decltype(&SSL_free)>;
using Subjects = kx::TArray<kx::String>;

/// Both sides of a TLS connection in memory.
class CTLSSessionTest : public testing::Test {
protected:
    CTLSSessionTest()
    {
        const auto& certificates = support::CTestCertificates::get();
        EXPECT_EQ(
            SSL_CTX_use_certificate_chain_file(m_serverContext.get(), certificates.serverCertificate().c_str()), 1);
        EXPECT_EQ(SSL_CTX_add1_chain_cert(m_serverContext.get(), authority().get()), 1);
        EXPECT_EQ(
            SSL_CTX_use_PrivateKey_file(m_serverContext.get(), certificates.serverKey().c_str(), SSL_FILETYPE_PEM), 1);
        connectSides();
    }

    void connectSides()
    {
        m_client.reset(SSL_new(m_clientContext.get()));
        m_server.reset(SSL_new(m_serverContext.get()));
        BIO* one = nullptr;
        BIO* other = nullptr;
        BIO_new_bio_pair(&one, 0, &other, 0);
        SSL_set_bio(m_client.get(), one, one);
        SSL_set_bio(m_server.get(), other, other);
        SSL_set_connect_state(m_client.get());
        SSL_set_accept_state(m_server.get());
    }

    void shakeHands()
    {
        for (int i = 0; i < 10 && !(SSL_is_init_finished(m_client.get()) && SSL_is_init_finished(m_server.get()));
             ++i) {
            SSL_do_handshake(m_client.get());
            SSL_do_handshake(m_server.get());
        }
        ASSERT_TRUE(SSL_is_init_finished(m_client.get()));
    }

    static std::shared_ptr<X509> authority()
    {
        const std::unique_ptr<BIO, decltype(&BIO_free)> file(
            BIO_new_file(support::CTestCertificates::get().caFile().c_str(), "r"), &BIO_free);
        return {PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr), &X509_free};
    }

    SSL* client() { return m_client.get(); }

    Context m_clientContext{SSL_CTX_new(TLS_client_method()), &SSL_CTX_free};
    Context m_serverContext{SSL_CTX_new(TLS_server_method()), &SSL_CTX_free};
    Side m_client{nullptr, &SSL_free};
    Side m_server{nullptr, &SSL_free};
};

TEST_F(CTLSSessionTest, tellsVersionAndCipher)
{
    SSL_CTX_set_max_proto_version(m_clientContext.get(), TLS1_2_VERSION);
    SSL_CTX_set_cipher_list(m_clientContext.get(), "ECDHE-ECDSA-AES256-GCM-SHA384");
    connectSides();
    shakeHands();
    const sela::CTLSSession session(client());
    EXPECT_EQ(session.getVersion(), "TLSv1.2");
    EXPECT_EQ(session.getCipher(), "ECDHE-ECDSA-AES256-GCM-SHA384");
}

TEST_F(CTLSSessionTest, outlivesTheConnection)
{
    shakeHands();
    const sela::CTLSSession session(client());
    m_client.reset();
    m_server.reset();
    m_clientContext.reset();
    EXPECT_TRUE(session.isThere());
    EXPECT_EQ(session.getVersion(), "TLSv1.3");
    EXPECT_EQ(session.getSubjects().size(), 2);
}

TEST_F(CTLSSessionTest, namesTheSubjectsFromTheServersOwnOn)
{
    shakeHands();
    EXPECT_EQ(sela::CTLSSession(client()).getSubjects(), (Subjects{"CN=localhost", "CN=test authority"}));
}

TEST_F(CTLSSessionTest, sessionWithoutItsChainNamesTheServersOwnCertificate)
{
    SSL_CTX_set_max_proto_version(m_clientContext.get(), TLS1_2_VERSION);
    connectSides();
    shakeHands();
    // Without its chain is what comes back of a session that was stored.
    const std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)> old(SSL_get1_session(client()), &SSL_SESSION_free);
    unsigned char* bytes = nullptr;
    const int size = i2d_SSL_SESSION(old.get(), &bytes);
    const unsigned char* read = bytes;
    const std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)> stored(
        d2i_SSL_SESSION(nullptr, &read, size), &SSL_SESSION_free);
    OPENSSL_free(bytes);
    connectSides();
    SSL_set_session(client(), stored.get());
    shakeHands();
    ASSERT_TRUE(SSL_session_reused(client()));
    EXPECT_EQ(sela::CTLSSession(client()).getSubjects(), Subjects{"CN=localhost"});
}

TEST_F(CTLSSessionTest, knowsItsConnection)
{
    shakeHands();
    const sela::CTLSSession session(client());
    EXPECT_TRUE(session.isOf(client()));
    EXPECT_FALSE(session.isOf(nullptr));
    connectSides();
    shakeHands();
    EXPECT_FALSE(session.isOf(client()));
}

TEST_F(CTLSSessionTest, isNotThereBeforeTheHandshakeIsDone)
{
    SSL_do_handshake(client());
    EXPECT_FALSE(sela::CTLSSession(client()).isThere());
}

TEST_F(CTLSSessionTest, isEmptyOfNoConnection)
{
    const sela::CTLSSession session(nullptr);
    EXPECT_FALSE(session.isThere());
    EXPECT_EQ(session.getVersion(), "");
    EXPECT_EQ(session.getCipher(), "");
    EXPECT_EQ(session.getSubjects(), Subjects());
}

} // namespace
