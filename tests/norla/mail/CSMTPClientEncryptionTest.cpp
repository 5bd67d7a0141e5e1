// Mails that must be encrypted, where connections that are not are still open.
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/norla/mail/CSMTPClientFixture.h"

#include <atomic>
#include <functional>
#include <future>

namespace {

using mail_test::CSMTPClient;
using mail_test::CSMTPParams;
using mail_test::errorOf;
using mail_test::Texts;

const std::string mail = mail_test::conversation.substr(0, mail_test::conversation.find("QUIT"));

class CCountingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest* /*request*/, const kx::CError* error) override
    {
        ++m_calls;
        m_hasFailed = error != nullptr;
    }

    std::atomic<int> m_calls{0};
    std::atomic<bool> m_hasFailed{false};
};

class CSMTPClientEncryptionTest : public mail_test::CSMTPClientFixture {
protected:
    CSMTPParams paramsFor(CSMTPParams::ConnectType type) const
    {
        CSMTPParams changed = params();
        changed.connectType = type;
        return changed;
    }

    void sendWith(norla::CNetRequest& request, CSMTPParams::ConnectType type)
    {
        prepare(request, paramsFor(type));
        request.perform();
    }

    kx::P<norla::CNetRequest> prepared(CSMTPParams::ConnectType type)
    {
        auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, paramsFor(type));
        return request;
    }

    void expectCleanConversations(size_t secureMails)
    {
        EXPECT_EQ(received(0), mail);
        const std::string secure = received(1);
        EXPECT_TRUE(secure.starts_with("STARTTLS\r\nEHLO ")) << secure;
        std::string expected;
        for (size_t i = 0; i < secureMails; ++i)
            expected += mail;
        const size_t start = secure.find("MAIL");
        EXPECT_EQ(start == std::string::npos ? secure : secure.substr(start), expected + "QUIT\r\n");
    }
};

TEST_F(CSMTPClientEncryptionTest, aMailThatDemandsTLSDoesNotGoOverAnOldPlainConnection)
{
    takeMessage(greet()).readToEnd();
    takeMail(takeMessage(greetWithStartTLS()));
    auto request = kx::newObj<norla::CNetRequest>();
    sendWith(*request, CSMTPParams::ConnectUnencrypted);
    sendWith(*request, CSMTPParams::ConnectStartTLS);
    sendWith(*request, CSMTPParams::ConnectUnencrypted); // may be encrypted too
    request = nullptr;
    expectCleanConversations(2);
}

TEST_F(CSMTPClientEncryptionTest, answersThatCameInClearBehindTheGoAheadAreNotTaken)
{
    const auto& certificates = support::CTestCertificates::get();
    greet("250 STARTTLS\r\n")
        .readUntil("STARTTLS\r\n")
        .send("220 go ahead\r\n250-localhost\r\n250 AUTH PLAIN\r\n") // the second is from somebody on the way
        .startTLS(certificates.serverCertificate(), certificates.serverKey())
        .readToEnd();
    CSMTPParams secure = paramsFor(CSMTPParams::ConnectStartTLS);
    secure.userName = "user";
    secure.password = "not-to-be-seen";
    auto request = kx::newObj<norla::CNetRequest>();
    prepare(*request, secure);
    const auto error = errorOf([&request] { request->perform(); });
    request = nullptr;
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_WEIRD_SERVER_REPLY);
    m_server.join();
    EXPECT_EQ(m_server.received(0).find("AUTH"), std::string::npos) << m_server.received(0);
}

TEST_F(CSMTPClientEncryptionTest, aMailInTheBackgroundThatDemandsTLSDoesNotGoOverAnOldPlainConnection)
{
    takeMessage(greet()).readToEnd();
    takeMail(greetWithStartTLS());
    auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto listener = kx::newObj<CCountingListener>();
    for (const auto type : {CSMTPParams::ConnectUnencrypted, CSMTPParams::ConnectStartTLS}) {
        const auto request = prepared(type);
        request->setDoneListener(listener.get());
        thread->addRequest(request.get());
        ASSERT_TRUE(request->waitAsyncDone(20'000));
        request->checkAsyncResult();
    }
    thread->stop(true);
    thread = nullptr;
    expectCleanConversations(1);
    EXPECT_EQ(listener->m_calls, 2); // a second attempt is no end
    EXPECT_FALSE(listener->m_hasFailed);
}

TEST_F(CSMTPClientEncryptionTest, oneAttemptIsEnoughHoweverManyPlainConnectionsAreOpen)
{
    constexpr size_t plainConnections = 3;
    for (size_t i = 0; i < plainConnections; ++i)
        takeMail();
    takeMail(greetWithStartTLS());
    auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    for (size_t i = 0; i < plainConnections; ++i)
        manager->addRequest(prepared(CSMTPParams::ConnectUnencrypted).get());
    norla::CAsyncNetRequestManager::RequestArray finished;
    const auto finish = [&manager, &finished](size_t count) {
        for (finished.clear(); finished.size() < count; manager->handleEvents(&finished))
            manager->waitForEvents(-1);
    };
    finish(plainConnections);
    manager->addRequest(prepared(CSMTPParams::ConnectStartTLS).get());
    finish(1);
    finished[0]->checkAsyncResult();
    finished.clear();
    manager = nullptr;
    m_server.join();
    EXPECT_EQ(problems().size(), 1u); // one was closed without a goodbye
    size_t goodbyes = 0;
    for (size_t i = 0; i < plainConnections; ++i) {
        const std::string plain = m_server.received(i);
        EXPECT_EQ(plain.substr(plain.find("MAIL"), mail.size()), mail);
        EXPECT_EQ(plain.find("MAIL", plain.find("DATA")), std::string::npos) << plain;
        goodbyes += plain.ends_with("QUIT\r\n") ? 1 : 0;
    }
    EXPECT_EQ(goodbyes, plainConnections - 1);
    EXPECT_TRUE(m_server.received(plainConnections).ends_with(mail + "QUIT\r\n"));
}

TEST_F(CSMTPClientEncryptionTest, theSecondAttemptIsMadeAtThePlaceOfTheFirst)
{
    takeMessage(greet()).readToEnd();
    std::promise<void> end;
    greetWithStartTLS().readUntil("MAIL FROM:<a@x>\r\n").waitFor(end.get_future().share());
    support::CScriptedServer another;
    another.onConnection().readHead().stall();
    const auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    const auto plain = prepared(CSMTPParams::ConnectUnencrypted);
    manager->addRequest(plain.get());
    while (!plain->isAsyncDone()) {
        manager->waitForEvents(-1);
        manager->handleEvents(nullptr);
    }
    const auto secure = prepared(CSMTPParams::ConnectStartTLS);
    manager->addRequest(secure.get());
    const auto last = kx::newObj<norla::CNetRequest>();
    last->setURL(kx::String::fromUTF8(another.url()));
    manager->addRequest(last.get());
    while (m_server.received(1).find("MAIL") == std::string::npos) {
        manager->waitForEvents(100);
        manager->handleEvents(nullptr);
    }
    end.set_value(); // libcurl waits for an answer to its goodbye
    manager->removeRequest(0);
    EXPECT_FALSE(manager->removeRequest(secure.get()));
    EXPECT_TRUE(manager->removeRequest(last.get()));
    EXPECT_FALSE(secure->isAsyncDone());
}

TEST_F(CSMTPClientEncryptionTest, aSecondAttemptThatCannotBeStartedIsAFailure)
{
    takeMessage(greet()).readToEnd();
    const auto manager = kx::newObj<norla::CAsyncNetRequestManager>();
    const auto runToEnd = [&manager](norla::CNetRequest& request) {
        while (!request.isAsyncDone()) {
            manager->waitForEvents(-1);
            manager->handleEvents(nullptr);
        }
    };
    const auto plain = prepared(CSMTPParams::ConnectUnencrypted);
    manager->addRequest(plain.get());
    runToEnd(*plain);
    const auto secure = prepared(CSMTPParams::ConnectStartTLS);
    manager->addRequest(secure.get());
    m_calls.fail("curl_multi_add_handle");
    runToEnd(*secure);
    const auto error = errorOf([&secure] { secure->checkAsyncResult(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_FALSE(manager->removeRequest(secure.get()));
    EXPECT_EQ(received(0), mail);
}

// A second attempt asks its source for its position, and that may do anything.
class CBusySource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CBusySource(std::function<void()> action)
        : m_action(std::move(action))
    {
    }
    int read(unsigned char*, int, const norla::CNetRequest::HeaderMap&) override { return 0; }
    long long getLength() override { return 0; }
    void seek(long long) override {}
    long long getPosition() override
    {
        if (++m_asked == 2)
            m_action();
        return 0;
    }

private:
    const std::function<void()> m_action;
    int m_asked = 0;
};

class CSecondAttemptTest : public CSMTPClientEncryptionTest {
protected:
    CSecondAttemptTest()
    {
        takeMessage(greet()).readToEnd();
        const auto plain = prepared(CSMTPParams::ConnectUnencrypted);
        m_manager->addRequest(plain.get());
        runToEnd(*plain);
    }

    void runToEnd(const norla::CNetRequest& request)
    {
        while (request.isManaged()) {
            m_manager->waitForEvents(100);
            m_manager->handleEvents(nullptr);
        }
    }

    /// So many that the manager needs another array for them.
    void addOthers()
    {
        for (int i = 0; i < 100; ++i) {
            const auto other = kx::newObj<norla::CNetRequest>();
            other->setURL("nonsense://127.0.0.1/");
            m_manager->addRequest(other.get());
        }
    }

    /// A mail that needs a second attempt.
    kx::P<norla::CNetRequest> addSecure(std::function<void()> action)
    {
        auto secure = prepared(CSMTPParams::ConnectStartTLS);
        secure->setSendDataSource(kx::newObj<CBusySource>(std::move(action)).get());
        m_manager->addRequest(secure.get());
        return secure;
    }

    const kx::P<norla::CAsyncNetRequestManager> m_manager = kx::newObj<norla::CAsyncNetRequestManager>();
};

TEST_F(CSecondAttemptTest, isMadeThoughItsSourceAddsOthers)
{
    m_server.onConnection().send("220 ready\r\n").readToEnd();
    const auto secure = addSecure([this] { addOthers(); });
    while (secure->isManaged() && m_server.received(1).empty()) {
        m_manager->waitForEvents(100);
        m_manager->handleEvents(nullptr);
    }
    EXPECT_TRUE(secure->isManaged());
    m_manager->removeAllRequests();
}

TEST_F(CSecondAttemptTest, isAFailureOfItsRequestAloneWhenItCannotBeStarted)
{
    const auto secure = addSecure([this] {
        addOthers();
        m_calls.fail("curl_multi_add_handle");
    });
    runToEnd(*secure);
    const auto error = errorOf([&secure] { secure->checkAsyncResult(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_FALSE(m_manager->removeRequest(secure.get()));
}

TEST_F(CSecondAttemptTest, isNotMadeWhenItsSourceWithdrawsIt)
{
    kx::P<norla::CNetRequest> secure;
    secure = addSecure([this, &secure] { EXPECT_TRUE(m_manager->removeRequest(secure.get())); });
    runToEnd(*secure);
    EXPECT_FALSE(secure->isAsyncDone());
    EXPECT_FALSE(m_manager->removeRequest(secure.get()));
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 2);
}

TEST_F(CSMTPClientEncryptionTest, onlyTheSecondAttemptAsksForANewConnection)
{
    takeMessage(greet()).readToEnd();
    takeMail(takeMessage(greetWithStartTLS()));
    auto request = kx::newObj<norla::CNetRequest>();
    sendWith(*request, CSMTPParams::ConnectUnencrypted);
    prepare(*request, paramsFor(CSMTPParams::ConnectStartTLS));
    m_calls.takeOptions();
    request->perform();
    EXPECT_EQ(m_calls.takeOptions(), (Texts{"PREREQFUNCTION=set", "PREREQDATA=set", "FRESH_CONNECT=1"}));
    request->perform();
    EXPECT_EQ(m_calls.takeOptions(), (Texts{"FRESH_CONNECT=0", "PREREQFUNCTION=set", "PREREQDATA=set"}));
    request = nullptr;
    expectCleanConversations(2);
}

TEST_F(CSMTPClientEncryptionTest, aConnectionTestThatDemandsTLSHasAConnectionOfItsOwn)
{
    takeMail();
    greetWithStartTLS().readToEnd();
    auto request = kx::newObj<norla::CNetRequest>();
    sendWith(*request, CSMTPParams::ConnectUnencrypted);
    CSMTPClient::doInitialRequestInit(*request, paramsFor(CSMTPParams::ConnectStartTLS));
    request->setOptionInt(CURLOPT_CONNECT_ONLY, 1);
    request->perform();
    request = nullptr;
    EXPECT_TRUE(received(1).starts_with("STARTTLS\r\nEHLO "));
}

} // namespace
