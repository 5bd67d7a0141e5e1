// Mails that are taken back while they are being sent.
#include "norla/async/CAsyncNetRequestManager.h"
#include "tests/norla/mail/CSMTPClientFixture.h"

#include <chrono>
#include <future>

namespace {

using norla::CAsyncNetRequestManager;

class WithdrawnMailTest : public mail_test::CSMTPClientFixture {
protected:
    /// A mail that is too large for the buffers between the two, of which the server takes some until the gate opens.
    kx::P<norla::CNetRequest> startMail(CAsyncNetRequestManager& manager)
    {
        greetAndTakeEnvelope().readBytes(1000).waitFor(m_gate.get_future().share()).readToEnd();
        auto request = kx::newObj<norla::CNetRequest>();
        const auto message = bufferOf(std::string(20'000'000, 'x'));
        norla::CSMTPClient::makeSendMailRequest(
            *request, params(), "a@x", {"b@x"}, kx::newObj<kx::CBufferStream>(message).get());
        manager.addRequest(request.get());
        while (received(0).find("xxx") == std::string::npos) {
            manager.waitForEvents(10);
            manager.handleEvents(nullptr);
        }
        return request;
    }

    std::string received(size_t connection) const { return m_server.received(connection); }

    /// Which the server has in the end.
    std::string mail()
    {
        m_gate.set_value();
        m_server.join();
        return m_server.received(0);
    }

    std::promise<void> m_gate;
};

TEST_F(WithdrawnMailTest, isNotEndedAsIfItWereWhole)
{
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = startMail(*manager);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(manager->removeRequest(request.get()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_TRUE(mail().ends_with("x"));
}

TEST_F(WithdrawnMailTest, isNotEndedByTheManagersEndEither)
{
    auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = startMail(*manager);
    const auto start = std::chrono::steady_clock::now();
    manager = nullptr;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_TRUE(mail().ends_with("x"));
}

TEST_F(WithdrawnMailTest, canBeSentAgain)
{
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = startMail(*manager);
    manager->removeRequest(request.get());
    mail();
    takeMail();
    manager->addRequest(request.get());
    while (manager->handleEvents(nullptr) == 0)
        manager->waitForEvents(100);
    EXPECT_NO_THROW(request->checkAsyncResult());
    EXPECT_TRUE(m_server.received(1).find("RCPT TO:<b@x>\r\n") != std::string::npos);
}

} // namespace
