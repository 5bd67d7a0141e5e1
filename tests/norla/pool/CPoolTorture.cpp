#include "tests/norla/pool/CPoolTorture.h"

#include "kx/log/log.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CSSHOptions.h"
#include "norla/core/CTLSOptions.h"
#include "norla/pool/CTransferLanes.h"
#include "tests/norla/pool/CFailingCall.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ostream>
#include <poll.h>
#include <stdexcept>
#include <thread>

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using norla::TransferState;

namespace {

constexpr int longest = 20'000;       // milliseconds
constexpr size_t elsewherePorts = 20; // one of them is another thread's as good as always

using Witness = kx::P<CWitness>;
using Pool = kx::P<CTransferPool>;

/// @return whether it has become true in time
template <typename TCondition>
bool waitUntil(TCondition condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(longest);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}

void waitForAll(const CStage& stage)
{
    for (const Witness& witness : stage.witnesses)
        witness->wait();
}

/// Waits until the server has the first request, which it does not answer, or until that has failed.
void waitForFirst(const CStage& stage)
{
    waitUntil([&] { return stage.hasFirst() || stage.witnesses.front()->isOver(); });
}

/// Waits until the executor, or without one the callback, has each end.
void waitForCallbacks(const CStage& stage)
{
    waitForAll(stage);
    for (const Witness& witness : stage.witnesses) {
        pollfd waiting{witness->queue->getDescriptor(), POLLIN, 0};
        waitUntil([&] { return !witness->transfer || witness->ends != 0 || poll(&waiting, 1, 0) != 0; });
    }
}

void cancelAllOfThem(const CStage& stage)
{
    for (const Witness& witness : stage.witnesses) {
        if (witness->transfer)
            CFailingCall::inLibrary([&] { witness->transfer->cancel(); });
    }
    waitForAll(stage);
}

void cancelWhileTheFirstRuns(const CStage& stage)
{
    waitForFirst(stage);
    cancelAllOfThem(stage);
}

void cancelInThePause(const CStage& stage)
{
    const Witness& first = stage.witnesses.front();
    waitUntil([&] { return first->isOver() || first->transfer->getState() == TransferState::Pausing; });
    cancelAllOfThem(stage);
}

void askForProgress(const CStage& stage)
{
    waitForFirst(stage);
    for (const Witness& witness : stage.witnesses) {
        if (witness->transfer)
            CFailingCall::inLibrary([&] { witness->transfer->getProgress(); });
    }
    cancelAllOfThem(stage);
}

void withdraw(const CStage& stage)
{
    waitForFirst(stage);
    for (const Witness& witness : stage.witnesses) {
        CFailingCall::inLibrary([&] { witness->isWithdrawn = stage.pool.removeRequest(witness->request.get()); });
        EXPECT_EQ(witness->isWithdrawn, witness->transfer && witness->transfer->getState() == TransferState::Cancelled);
    }
}

Pool newPool(const CScenario& scenario)
{
    const CTransferPool::Options options{.threads = scenario.threads, .atOnce = scenario.atOnce};
    Pool pool;
    try {
        CFailingCall::inLibrary([&] { pool = kx::newObj<CTransferPool>(options); });
    } catch (const std::exception&) {
        return nullptr; // which is a way to say it
    }
    return pool;
}

kx::P<CNetRequest> requestTo(const std::string& url)
{
    auto request = kx::newObj<CNetRequest>();
    request->setURL(kx::String::fromUTF8(url));
    return request;
}

/// Which threads of a pool do the transfers to these.
std::vector<std::thread::id> threadsOf(const std::vector<std::string>& urls, int threads)
{
    auto pool = kx::newObj<CTransferPool>(CTransferPool::Options{.threads = threads});
    std::vector<std::thread::id> ids(urls.size());
    std::vector<kx::P<CTransfer>> transfers;
    for (size_t index = 0; index < urls.size(); ++index) {
        CTransfer::Options options;
        options.onDone = [&id = ids[index]](CTransfer&) { id = std::this_thread::get_id(); };
        transfers.push_back(pool->start(requestTo(urls[index]).get(), options));
    }
    for (const auto& transfer : transfers)
        EXPECT_TRUE(transfer->wait(longest));
    pool = nullptr; // with all its callbacks
    return ids;
}

/// What sets options of libcurl's when the transfer begins, and on its way.
void setAllSorts(CWitness& witness)
{
    CNetRequest& request = *witness.request;
    request.setSafeDefaults();
    request.setFollowRedirects(true);
    request.setHTTPMethod("PUT");
    request.setUserName("user");
    request.setUserPassword("secret");
    request.setOptionString(CURLOPT_COOKIE, "secret=1");
    request.setOptionString(CURLOPT_REFERER, "http://here.test/");
    request.setOptionInt(CURLOPT_AUTOREFERER, 1);
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Secret", "secret");
    request.setCustomHTTPHeaders(headers.get());
    witness.body.setSize(5);
    std::fill_n(witness.body.getData(), 5, static_cast<unsigned char>(0x78));
    request.setSendDataBuffer(&witness.body);
}

void makeMail(CWitness& witness)
{
    CNetRequest& request = *witness.request;
    witness.recipients->add("you@there.test");
    request.setOptionString(CURLOPT_MAIL_FROM, "me@here.test");
    request.setOptionPtr(CURLOPT_MAIL_RCPT, witness.recipients->getCurlList());
    request.setTLSOptions({}); // a new connection, as it may come to be encrypted
    request.setFTPUseSSL(CURLUSESSL_TRY);
    request.setUpload(true);
    witness.body.setSize(5);
    std::fill_n(witness.body.getData(), 5, static_cast<unsigned char>(0x78));
    request.setSendDataBuffer(&witness.body);
}

/// Whoever connects for the data gets none.
void scriptFTP(support::CScript& script, unsigned short dataPort)
{
    const std::string place = "229 Here (|||" + std::to_string(dataPort) + "|)\r\n";
    script.send("220 Hello\r\n").readUntil("\r\n");
    for (const char* answer : {"230 In\r\n", "257 \"/\"\r\n", place.c_str(), "200 Type\r\n", "500 Size\r\n"})
        script.send(answer).readUntil("\r\n");
    script.send("150 Now\r\n226 Done\r\n").readToEnd();
}

} // namespace

void PrintTo(const CScenario& scenario, std::ostream* out)
{
    *out << scenario.name;
}

const std::vector<CScenario>& CPoolTorture::scenarios()
{
    static const std::vector<CScenario> all = {{"Success", 0, {"/ok", "/ok"}, &waitForAll},
        {"Failure", 0, {"/404"}, &waitForAll}, {"Retry", 0, {"/503"}, &waitForAll},
        {"QueuedSuccess", 1, {"/ok", "/ok"}, &waitForAll}, {"Deadline", 0, {"/silent?briefly"}, &waitForAll},
        {"Executor", 0, {"/ok?queue"}, &waitForCallbacks}, {"CancelAtOnce", 0, {"/silent"}, &cancelAllOfThem},
        {"Cancel", 0, {"/silent"}, &cancelWhileTheFirstRuns}, {"Progress", 0, {"/half"}, &askForProgress},
        {"CancelInTheQueue", 1, {"/silent", "/ok"}, &cancelWhileTheFirstRuns},
        {"CancelInThePause", 0, {"/503?long"}, &cancelInThePause}, {"Withdrawal", 1, {"/silent", "/ok"}, &withdraw},
        {"Stop", 1, {"/silent", "/ok"}, &waitForFirst}, {"HostName", 0, {"/ok?name"}, &waitForAll},
        {"AllSortsOfOptions", 0, {"/307"}, &waitForAll}, {"FileTransfer", 0, {"/ftp"}, &waitForAll},
        {"SecureFileTransfer", 0, {"/sftp"}, &waitForAll}, {"Mail", 0, {"/mail?refused"}, &waitForAll},
        {"WithdrawalOfAMail", 0, {"/mail"}, &cancelWhileTheFirstRuns},
        {"TwoThreads", 0, {"/ok", "/ok?elsewhere"}, &waitForAll, 2},
        {"QueuedForAnotherThread", 1, {"/ok", "/ok?elsewhere"}, &waitForAll, 2},
        {"StopOfTwoThreads", 0, {"/silent", "/silent?elsewhere"}, &waitForFirst, 2},
        {"SecondLane", 0, {"/ok"}, &waitForAll, 1, true},
        {"StopWithASecondLane", 0, {"/silent"}, &waitForFirst, 1, true}};
    return all;
}

CPoolTorture::CPoolTorture()
    : m_other({{"/ok", support::CPathServer::answer("200 OK", "hello")}})
    , m_server({{"/ok", support::CPathServer::answer("200 OK", "hello")},
          {"/ok?queue", support::CPathServer::answer("200 OK", "hello")},
          {"/ok?name", support::CPathServer::answer("200 OK", "hello")},
          {"/404", support::CPathServer::answer("404 Not Found", "no")},
          {"/503", support::CPathServer::answer("503 Busy", "")},
          {"/503?long", support::CPathServer::answer("503 Busy", "")},
          {"/307", "HTTP/1.1 307 There\r\nLocation: " + m_other.url("/ok") + "\r\nContent-Length: 0\r\n\r\n"},
          {"/half", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc"}})
    , m_elsewhere({{"/ok", support::CPathServer::answer("200 OK", "hello")},
                      {"/ok?elsewhere", support::CPathServer::answer("200 OK", "hello")}},
          elsewherePorts)
{
    kx::setLogHandler([](const kx::CLogEntry&) {}); // which says what could not be done
    m_other.start();
    m_server.start();
    m_elsewhere.start();
}

CPoolTorture::~CPoolTorture()
{
    kx::setLogHandler({});
}

void CPoolTorture::play(
    const CScenario& scenario, const std::function<void()>& arm, const std::function<void()>& disarm)
{
    m_scripted = std::make_unique<support::CScriptedServer>(); // that knows nothing of a connection of the last time
    std::vector<Witness> witnesses;
    for (const std::string& path : scenario.paths)
        witnesses.push_back(newWitness(path));
    arm();
    Pool pool = newPool(scenario);
    if (pool && scenario.isInSecondLane) {
        disarm();
        fillLane(*pool);
        arm();
    }
    const size_t before = requestCount();
    if (pool) {
        for (const Witness& witness : witnesses)
            witness->start(*pool);
        scenario.act({*pool, witnesses, [this, before] { return requestCount() != before; }});
        disarm();
        if (std::all_of(witnesses.begin(), witnesses.end(), [](const Witness& its) { return its->isOver(); }))
            witnesses.push_back(useOnceMore(*pool));
        emptyLane();
        arm();
        const auto begin = std::chrono::steady_clock::now();
        CFailingCall::inLibrary([&] { pool->stop(); });
        CFailingCall::inLibrary([&] { pool = nullptr; });
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "the stop waits for a server";
    }
    disarm();
    for (const Witness& witness : witnesses) {
        witness->check();
        performOnceMore(*witness);
    }
}

/// The request has its own connections from before.
CPoolTorture::Witness CPoolTorture::newWitness(const std::string& path)
{
    auto witness = kx::newObj<CWitness>(m_server.url("/ok"));
    witness->request->perform();
    witness->request->setURL(kx::String::fromUTF8(urlOf(path)));
    prepare(*witness, path);
    return witness;
}

std::string CPoolTorture::urlOf(const std::string& path)
{
    if (path == "/ftp")
        return m_scripted->url(path, "ftp");
    if (path == "/sftp")
        return m_refused.url(path, "sftp");
    if (path.starts_with("/mail"))
        return m_scripted->url("/", "smtp");
    if (path.ends_with("?elsewhere"))
        return urlElsewhere(path);
    std::string url = m_server.url(path);
    if (path == "/ok?name")
        url.replace(url.find("127.0.0.1"), std::string("127.0.0.1").size(), "localhost");
    return url;
}

std::string CPoolTorture::urlElsewhere(const std::string& path)
{
    if (!m_elsewhereIndex) {
        std::vector<std::string> urls = {m_server.url("/ok")};
        for (size_t index = 0; index < elsewherePorts; ++index)
            urls.push_back(m_elsewhere.url("/ok?elsewhere", index));
        const auto threads = threadsOf(urls, 2);
        const auto other = std::find_if(
            threads.begin(), threads.end(), [&](const std::thread::id& thread) { return thread != threads.front(); });
        if (other == threads.end())
            throw std::runtime_error("all ports are of one thread");
        m_elsewhereIndex = other - threads.begin() - 1;
    }
    return m_elsewhere.url(path, *m_elsewhereIndex);
}

/// So that whoever is started next to the same host goes in another one. They wait for one connection to say whether
/// it is good for all of them.
void CPoolTorture::fillLane(CTransferPool& pool)
{
    while (m_fillers.size() < norla::CTransferLanes::width) {
        const auto& request = m_fillers.emplace_back(requestTo(m_server.url("/silent")));
        request->setOptionInt(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_2_0);
        request->setOptionInt(CURLOPT_PIPEWAIT, 1);
    }
    const size_t before = requestCount();
    for (const auto& request : m_fillers)
        m_filling.push_back(pool.start(request.get()));
    const auto last = pool.start(requestTo(m_other.url("/ok")).get()); // begins behind them
    EXPECT_TRUE(last->wait(longest) && waitUntil([&] { return requestCount() > before; }));
}

void CPoolTorture::emptyLane()
{
    for (const auto& transfer : m_filling)
        transfer->cancel();
    for (const auto& transfer : m_filling)
        EXPECT_TRUE(transfer->wait(longest));
    m_filling.clear();
}

void CPoolTorture::prepare(CWitness& witness, const std::string& path)
{
    CTransfer::Options& options = witness.options;
    if (path == "/503")
        options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromMilliseconds(1)};
    if (path == "/silent?briefly")
        options.attemptDeadline = kx::CTimeSpan::fromMilliseconds(1);
    if (path == "/ok?queue")
        options.executor = witness.queue;
    if (path == "/503?long")
        options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromSeconds(30), .jitter = false};
    if (path == "/307")
        setAllSorts(witness);
    if (path == "/sftp")
        witness.request->setSSHOptions({.hostKeyType = "ssh-ed25519"});
    if (path == "/ftp")
        scriptFTP(m_scripted->onConnection(), m_data.getPort());
    if (path == "/mail")
        m_scripted->onConnection().stall();
    if (path == "/mail?refused")
        m_scripted->onConnection().send("554 No\r\n").readToEnd();
    if (path.starts_with("/mail"))
        makeMail(witness);
}

CPoolTorture::Witness CPoolTorture::useOnceMore(CTransferPool& pool)
{
    auto witness = newWitness("/ok");
    EXPECT_TRUE(witness->start(pool));
    witness->wait();
    EXPECT_EQ(witness->transfer->getState(), TransferState::Succeeded) << "unusable afterwards";
    return witness;
}

void CPoolTorture::performOnceMore(CWitness& witness) const
{
    if (m_mayBeLost) {
        static auto* const kept = new std::vector<kx::P<CNetRequest>>;
        kept->push_back(witness.request);
        return;
    }
    witness.request->setURL(kx::String::fromUTF8(m_server.url("/ok")));
    EXPECT_NO_THROW(witness.request->perform());
}

size_t CPoolTorture::requestCount() const
{
    return static_cast<size_t>(m_server.requestCount()) + m_scripted->connectionCount();
}
