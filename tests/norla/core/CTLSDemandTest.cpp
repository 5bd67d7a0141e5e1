// TLS that is demanded, and connections that have none.
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"

#include <functional>

namespace {

using Texts = std::vector<std::string>;
const Texts watch = {"PREREQFUNCTION=set", "PREREQDATA=set"};

/// Transfers of "ftp" through an HTTP proxy that is no tunnel, which are never encrypted.
class CTLSDemandTest : public CRequestFixture {
protected:
    CTLSDemandTest() { setUp(); }

    void setUp()
    {
        request().setURL("ftp://somewhere.invalid/file");
        request().setProxy(kx::String::fromUTF8(server().url("")));
    }

    /// The options that the transfer sets.
    Texts optionsOf(kx::P<kx::CError>* failed = nullptr)
    {
        m_calls.takeOptions();
        const auto error = failure();
        if (failed)
            *failed = error;
        else
            EXPECT_EQ(error, nullptr) << error->what();
        return m_calls.takeOptions();
    }

    support::CCurlCalls m_calls;
};

TEST_F(CTLSDemandTest, nothingIsSetForWhoDemandsNone)
{
    answer(ok("1")).readHead().send(ok("2"));
    EXPECT_EQ(optionsOf(), Texts());
    request().setFTPUseSSL(CURLUSESSL_TRY);
    EXPECT_EQ(optionsOf(), Texts());
}

TEST_F(CTLSDemandTest, failsWhereTheConnectionIsPlain)
{
    server().onConnection().readToEnd();
    request().setFTPUseSSL(CURLUSESSL_ALL);
    kx::P<kx::CError> error;
    EXPECT_EQ(optionsOf(&error), watch); // once: the connection was new
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_EQ(
        error->getMessage(), "Requested SSL level failed: the connection is not encrypted although TLS is demanded");
    EXPECT_EQ(error->getProps().getMap(), (kx::TMap<kx::String, kx::String>{{"responseCodeDomain", "ftp"}}));
    EXPECT_EQ(received(), "");
}

TEST_F(CTLSDemandTest, failsWhenTheSecondConnectionIsPlainToo)
{
    answer(ok("1")).readToEnd();
    server().onConnection().readToEnd();
    EXPECT_EQ(optionsOf(), Texts());
    request().setFTPUseSSL(CURLUSESSL_CONTROL);
    kx::P<kx::CError> error;
    EXPECT_EQ(optionsOf(&error), (Texts{"PREREQFUNCTION=set", "PREREQDATA=set", "FRESH_CONNECT=1"}));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_EQ(received(1), "");
    EXPECT_EQ(server().received(0).find("GET", 1), std::string::npos);
}

TEST_F(CTLSDemandTest, isMadeByWhateverSetter)
{
    for (const auto& demand : std::vector<std::function<void()>>{[this] { request().setFTPUseSSL(CURLUSESSL_CONTROL); },
             [this] { request().setOptionInt(CURLOPT_USE_SSL, CURLUSESSL_ALL); },
             [this] { request().setOptionInt64(CURLOPT_USE_SSL, CURLUSESSL_ALL); }}) {
        server().onConnection().readToEnd();
        request().reset();
        setUp();
        demand();
        kx::P<kx::CError> error;
        EXPECT_EQ(optionsOf(&error), watch);
        EXPECT_NE(error, nullptr);
    }
}

TEST_F(CTLSDemandTest, isForgottenWithTheOptions)
{
    answer(ok("1"));
    request().setFTPUseSSL(CURLUSESSL_ALL);
    request().reset();
    setUp();
    EXPECT_EQ(optionsOf(), Texts());
}

TEST_F(CTLSDemandTest, canBeTakenBack)
{
    server().onConnection().readToEnd();
    answer(ok("1"));
    request().setFTPUseSSL(CURLUSESSL_ALL);
    EXPECT_NE(failure(), nullptr);
    request().setFTPUseSSL(CURLUSESSL_NONE);
    EXPECT_EQ(optionsOf(), Texts());
}

TEST_F(CTLSDemandTest, isNotMadeOfAControlConnectionThatIsToBecomePlain)
{
    answer(ok("1"));
    request().setFTPUseSSL(CURLUSESSL_ALL);
    request().setOptionInt(CURLOPT_FTP_SSL_CCC, CURLFTPSSL_CCC_PASSIVE);
    EXPECT_EQ(optionsOf(), Texts());
}

TEST_F(CTLSDemandTest, saysNothingToHTTP)
{
    answer(ok("1"));
    request().setProxy("");
    request().setFTPUseSSL(CURLUSESSL_ALL);
    performPath();
    EXPECT_EQ(body(), "1");
}

TEST_F(CTLSDemandTest, keepsTheApplicationsWishForANewConnection)
{
    answer(ok("1")).readToEnd();
    server().onConnection().readToEnd();
    EXPECT_EQ(optionsOf(), Texts());
    request().setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request().setFTPUseSSL(CURLUSESSL_ALL);
    kx::P<kx::CError> error;
    EXPECT_EQ(optionsOf(&error), watch);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
}

struct CApplicationsAnswer {
    int calls = 0;
    int answer = CURL_PREREQFUNC_OK;
};

int applicationsAnswer(void* asked, char* /*peerIP*/, char* /*localIP*/, int /*peerPort*/, int /*localPort*/)
{
    ++static_cast<CApplicationsAnswer*>(asked)->calls;
    return static_cast<CApplicationsAnswer*>(asked)->answer;
}

TEST_F(CTLSDemandTest, asksTheApplicationsOwnCallbackToo)
{
    CApplicationsAnswer asked;
    answer(ok("1")).readHead().send(ok("2"));
    request().setProxy("");
    request().setURL(kx::String::fromUTF8(server().url()));
    request().setFTPUseSSL(CURLUSESSL_ALL);
    request().setOptionPtr(CURLOPT_PREREQFUNCTION, reinterpret_cast<void*>(&applicationsAnswer));
    request().setOptionPtr(CURLOPT_PREREQDATA, &asked);
    EXPECT_EQ(failure(), nullptr);
    EXPECT_EQ(failure(), nullptr);
    EXPECT_EQ(asked.calls, 2);
    asked.answer = CURL_PREREQFUNC_ABORT;
    const auto error = failure();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_ABORTED_BY_CALLBACK);
}

TEST_F(CTLSDemandTest, asksTheApplicationsOwnCallbackWithItsDataOnceNothingIsDemanded)
{
    CApplicationsAnswer first;
    CApplicationsAnswer second;
    answer(ok("1")).readHead().send(ok("2"));
    request().setProxy("");
    request().setURL(kx::String::fromUTF8(server().url()));
    request().setFTPUseSSL(CURLUSESSL_ALL);
    request().setOptionPtr(CURLOPT_PREREQFUNCTION, reinterpret_cast<void*>(&applicationsAnswer));
    request().setOptionPtr(CURLOPT_PREREQDATA, &first);
    EXPECT_EQ(failure(), nullptr);
    void* const own = m_calls.pointerOf(CURLOPT_PREREQDATA);
    request().setFTPUseSSL(CURLUSESSL_NONE);
    request().setOptionPtr(CURLOPT_PREREQDATA, &second);
    ASSERT_EQ(m_calls.pointerOf(CURLOPT_PREREQDATA), own);
    EXPECT_EQ(failure(), nullptr);
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(CTLSDemandTest, aRefusedOptionIsTheTransfersError)
{
    request().setFTPUseSSL(CURLUSESSL_ALL);
    m_calls.failOption(CURLOPT_PREREQFUNCTION);
    const auto error = failure();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Out of memory");
}

} // namespace
