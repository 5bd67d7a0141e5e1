#include "tests/norla/pool/CPoolTorture.h"

#include "kx/log/log.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CSSHOptions.h"
#include "norla/core/CTLSOptions.h"
#include "tests/norla/pool/CFailingCall.h"

#include <algorithm>
#include <chrono>
#include <ostream>
#include <poll.h>
#include <thread>

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using norla::TransferState;

namespace {

constexpr int longest = 20'000; // milliseconds

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

Pool newPool(int atOnce)
{
    Pool pool;
    try {
        CFailingCall::inLibrary([&] { pool = kx::newObj<CTransferPool>(CTransferPool::Options{.atOnce = atOnce}); });
    } catch (const std::exception&) {
        return nullptr; // which is a way to say it
    }
    return pool;
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

CWitness::CWitness(const std::string& url)
{
    request->setURL(kx::String::fromUTF8(url));
    options.onDone = [this](CTransfer&) { ++ends; };
}

void CWitness::onNetRequestDone(CNetRequest* /*request*/, const kx::CError* error)
{
    ++requestEnds;
    hasSucceeded = !error;
}

bool CWitness::start(CTransferPool& pool)
{
    request->setDoneListener(this);
    try {
        CFailingCall::inLibrary([&] { transfer = pool.start(request.get(), options); });
    } catch (const std::exception&) {
        EXPECT_FALSE(request->isManaged());
    }
    return static_cast<bool>(transfer);
}

void CWitness::wait() const
{
    EXPECT_TRUE(!transfer || transfer->wait(longest)) << "no end";
}

void CWitness::check()
{
    request->setDoneListener(nullptr); // the end of the circle
    options = {};
    EXPECT_FALSE(request->isManaged());
    queue->runPending();
    EXPECT_EQ(ends, transfer ? 1 : 0);
    EXPECT_EQ(requestEnds, transfer && !isWithdrawn ? 1 : 0);
    if (!transfer)
        return;
    const bool isSuccess = transfer->getState() == TransferState::Succeeded;
    EXPECT_EQ(transfer->getError() == nullptr, isSuccess);
    EXPECT_EQ(hasSucceeded, isSuccess);
    if (isWithdrawn)
        return; // of which the request says nothing
    EXPECT_TRUE(request->isAsyncDone());
    EXPECT_EQ(isResultGood(), isSuccess);
}

bool CWitness::isResultGood() const
{
    try {
        request->checkAsyncResult();
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

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
        {"WithdrawalOfAMail", 0, {"/mail"}, &cancelWhileTheFirstRuns}};
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
{
    kx::setLogHandler([](const kx::CLogEntry&) {}); // which says what could not be done
    m_other.start();
    m_server.start();
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
    const size_t before = requestCount();
    arm();
    Pool pool = newPool(scenario.atOnce);
    if (pool) {
        for (const Witness& witness : witnesses)
            witness->start(*pool);
        scenario.act({*pool, witnesses, [this, before] { return requestCount() != before; }});
        disarm();
        if (std::all_of(witnesses.begin(), witnesses.end(), [](const Witness& its) { return its->isOver(); }))
            witnesses.push_back(useOnceMore(*pool));
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
    std::string url = m_server.url(path);
    if (path == "/ok?name")
        url.replace(url.find("127.0.0.1"), std::string("127.0.0.1").size(), "localhost");
    return url;
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
