// What a pool does when something fails it once: each allocation, each call of libcurl's and each of the system's, in
// turn. A program of its own, because it replaces operator new and functions of the system's.
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/pool/CFailingCall.h"
#include "tests/norla/pool/CPoolTorture.h"
#include "tests/norla/pool/letFail.h"
#include "tests/support/CPathServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

Play playOf(CPoolTorture& torture, const CScenario& scenario)
{
    return [&](const std::function<void()>& arm, const std::function<void()>& disarm) {
        torture.play(scenario, arm, disarm);
    };
}

class PoolTortureTest : public testing::TestWithParam<CScenario> {
protected:
    CPoolTorture m_torture;
};

TEST_P(PoolTortureTest, outlivesEachAllocationThatFails)
{
    EXPECT_GT(letFail(GetParam().name, playOf(m_torture, GetParam()), CFailingCall::allocation), 20);
}

/// Of one function, in all scenarios.
class PoolTortureByCallTest : public testing::TestWithParam<std::string> {
protected:
    CPoolTorture m_torture;
};

class PoolTortureBySystemCallTest : public PoolTortureByCallTest {};

TEST_P(PoolTortureBySystemCallTest, outlivesEachThatFails)
{
    long count = 0;
    for (const CScenario& scenario : CPoolTorture::scenarios()) {
        if (!HasFailure())
            count += letFail(scenario.name, playOf(m_torture, scenario), GetParam());
    }
    EXPECT_GT(count, 0) << "none was made";
}

TEST_P(PoolTortureByCallTest, outlivesEachThatFails)
{
    if (GetParam() == "curl_multi_remove_handle")
        m_torture.requestsMayBeLost();
    int count = 0;
    std::set<std::string> options;
    for (const CScenario& scenario : CPoolTorture::scenarios()) {
        if (!HasFailure())
            count += letFailOfLibcurls(scenario.name, playOf(m_torture, scenario), GetParam(), options);
    }
    const bool isNeeded = GetParam() != "curl_easy_pause" || !support::isLibcurlSince(8, 14);
    EXPECT_EQ(count > 0, isNeeded) << count << " calls were made";
}

// The same with curl_easy_setopt, of which the names tell that no option is left out.
TEST(PoolTortureByOptionTest, outlivesEachThatIsRefused)
{
    CPoolTorture torture;
    std::set<std::string> options;
    for (const CScenario& scenario : CPoolTorture::scenarios()) {
        if (!testing::Test::HasFailure())
            letFailOfLibcurls(scenario.name, playOf(torture, scenario), "curl_easy_setopt", options);
    }
    EXPECT_EQ(options,
        (std::set<std::string>{"CLOSESOCKETDATA", "CLOSESOCKETFUNCTION", "COOKIE", "FRESH_CONNECT", "HTTPHEADER",
            "MAIL_RCPT", "NOPROGRESS", "OPENSOCKETDATA", "OPENSOCKETFUNCTION", "PREREQDATA", "PREREQFUNCTION",
            "QUICK_EXIT", "REDIR_PROTOCOLS_STR", "REFERER", "SSH_KNOWNHOSTS", "XFERINFODATA", "XFERINFOFUNCTION"}));
}

/// A transfer over FTP whose server says where its data are before libcurl has come to wait for that.
class PoolPauseTest : public testing::Test {
protected:
    /// @param port of whoever closes a connection at once
    void script(unsigned short port)
    {
        const std::string place = "229 Here (|||" + std::to_string(port) + "|)\r\n";
        support::CScript& script = m_server.onConnection();
        script.send("220 Hello\r\n").readUntil("\r\n");
        for (const char* answer : {"230 In\r\n", "257 \"/\"\r\n", place.c_str(), "200 Type\r\n", "500 Size\r\n"})
            script.send(answer).readUntil("\r\n");
        script.send("150 Now\r\n226 Done\r\n" + place).readUntil("EPSV\r\n").readToEnd();
    }

    kx::P<norla::CTransfer> run()
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(kx::String::fromUTF8(m_server.url("/file", "ftp")));
        auto transfer = m_pool->start(request.get());
        EXPECT_TRUE(transfer->wait(5'000)) << "it does not go on";
        return transfer;
    }

    support::CScriptedServer m_data; // which closes what it has no script for
    support::CScriptedServer m_server;
    const kx::P<norla::CTransferPool> m_pool = kx::newObj<norla::CTransferPool>();
};

TEST_F(PoolPauseTest, endsATransferThatLibcurlDoesNotLetGoOn)
{
    if (support::isLibcurlSince(8, 14))
        return; // it goes on by itself
    script(m_data.getPort());
    support::CCurlCalls calls;
    run();
    calls.fail("curl_easy_pause", 0, 1);
    const auto transfer = run();
    EXPECT_EQ(transfer->getState(), norla::TransferState::Failed);
    EXPECT_EQ(support::messageOf([&] { transfer->check(); }), "Out of memory");
}

/// More transfers to one host than one lane has, of which libcurl keeps the last one.
TEST(PoolStuckTest, harmsNobodyElseLongAfterwards)
{
    constexpr int count = 129;
    support::CCurlCalls calls;
    support::CScriptedServer other;
    other.onConnection().readHead().stall();
    auto silent = std::make_unique<support::CPathServer>(support::CPathServer::Answers{});
    silent->start();
    const auto pool = kx::newObj<norla::CTransferPool>();
    const auto start = [&](const std::string& url) {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(kx::String::fromUTF8(url));
        return pool->start(request.get());
    };
    const auto bystander = start(other.url());
    std::vector<kx::P<norla::CTransfer>> transfers;
    for (int number = 0; number < count; ++number)
        transfers.push_back(start(silent->url("/")));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (silent->requestCount() < count && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    ASSERT_EQ(silent->requestCount(), count);
    static const auto* const stuck = new kx::P<norla::CNetRequest>(&transfers.back()->getRequest()); // for ever
    EXPECT_TRUE(*stuck);
    calls.fail("curl_multi_remove_handle", 0, 1);
    transfers.back()->cancel();
    EXPECT_TRUE(transfers.back()->wait(5'000));
    calls.succeed();
    EXPECT_FALSE(bystander->wait(5'500)); // lanes that nobody uses close meanwhile
    silent = nullptr;
    EXPECT_TRUE(transfers.front()->wait(5'000));
    EXPECT_FALSE(bystander->wait(300));
}

const auto nameOfScenario = [](const testing::TestParamInfo<CScenario>& scenario) { return scenario.param.name; };
const auto nameOfFunction = [](const testing::TestParamInfo<std::string>& function) { return function.param; };

INSTANTIATE_TEST_SUITE_P(Scenarios, PoolTortureTest, testing::ValuesIn(CPoolTorture::scenarios()), nameOfScenario);
INSTANTIATE_TEST_SUITE_P(Libcurl, PoolTortureByCallTest, testing::ValuesIn(functionsOfLibcurl()), nameOfFunction);
INSTANTIATE_TEST_SUITE_P(
    System, PoolTortureBySystemCallTest, testing::ValuesIn(CFailingCall::functions()), nameOfFunction);

} // namespace
