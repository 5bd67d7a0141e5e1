#include "norla/files/CFileUpload.h"

#include "kx/base/CError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/waitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

using norla::ErrorKind;
using norla::FileState;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char created[] = "HTTP/1.1 201 Created\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";

/// A folder with a file, and a server that answers as the test wrote: a connection for each request.
class CFileUploadTest : public testing::Test {
protected:
    using Options = norla::CFileUploadOptions;

    CFileUploadTest()
    {
        m_options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(1);
        m_options.retries.longestPause = kx::CTimeSpan::fromMilliseconds(1);
        m_options.pool = kx::newObj<norla::CTransferPool>();
    }

    support::CScriptedServer& server() { return m_server; }
    Options& options() { return m_options; }
    std::filesystem::path source() const { return m_folder.path() / "file"; }
    void write(const std::string& bytes) const { m_folder.write("file", bytes); }

    /// More than all that connections hold on the way.
    void writeMuch() const
    {
        constexpr long long size = 64 << 20;
        write("");
        std::filesystem::resize_file(source(), size);
    }

    /// Takes a file of that size on the next connection.
    support::CScript& take(size_t size, const std::string& answer = created)
    {
        return m_server.onConnection().readHead().readBytes(size).send(answer).close();
    }

    kx::P<norla::CFileUpload> upload(const std::string& path = "/file")
    {
        return kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(m_server.url(path)),
            norla::CFileUpload::Path::fromBytes(source().native()), m_options);
    }

    /// The error with which it ends, null when it succeeds.
    static kx::P<kx::CError> failureOf(norla::CFileUpload& upload)
    {
        try {
            upload.run();
        } catch (const kx::CError& error) {
            return error.clone();
        }
        return nullptr;
    }
    kx::P<kx::CError> failure() { return failureOf(*upload()); }

    /// What the server read on that connection, once all scripts are over.
    std::string received(size_t connection)
    {
        m_server.join();
        EXPECT_EQ(m_server.problems(), std::vector<std::string>());
        return m_server.received(connection);
    }

private:
    support::CScriptedServer m_server;
    const support::CTemporaryFolder m_folder;
    Options m_options;
};

TEST_F(CFileUploadTest, putsTheFileUnlessThereIsOne)
{
    write("the body");
    take(8);
    const auto file = upload();
    EXPECT_EQ(file->getState(), FileState::Waiting);
    file->run();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
    EXPECT_THAT(received(0), StartsWith("PUT /file HTTP/1.1\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nContent-Length: 8\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nIf-None-Match: *\r\n"));
    EXPECT_THAT(received(0), EndsWith("\r\n\r\nthe body"));
}

TEST_F(CFileUploadTest, anEmptyFileIsOneToo)
{
    write("");
    take(0);
    upload()->run();
    EXPECT_THAT(received(0), HasSubstr("\r\nContent-Length: 0\r\n"));
}

TEST_F(CFileUploadTest, asksForNoConditionWhereItMayReplace)
{
    write("the body");
    options().overwrite = true;
    take(8);
    upload()->run();
    EXPECT_THAT(received(0), Not(HasSubstr("If-None-Match")));
}

TEST_F(CFileUploadTest, keepsTheHeadersOfWhoPrepares)
{
    write("the body");
    take(8);
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Mine", "yes");
    const auto prepare = [this, headers](norla::CNetRequest& request) {
        request.setURL(kx::String::fromUTF8(server().url("/file")));
        request.setCustomHTTPHeaders(headers.get());
    };
    kx::newObj<norla::CFileUpload>(prepare, norla::CFileUpload::Path::fromBytes(source().native()), options())->run();
    EXPECT_THAT(received(0), HasSubstr("\r\nX-Mine: yes\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nIf-None-Match: *\r\n"));
}

TEST_F(CFileUploadTest, postsWhereItIsToldTo)
{
    write("the body");
    options().post = true;
    take(8);
    upload()->run();
    EXPECT_THAT(received(0), StartsWith("POST /file HTTP/1.1\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nContent-Type: application/octet-stream\r\n"));
    EXPECT_THAT(received(0), Not(HasSubstr("If-None-Match")));
    EXPECT_THAT(received(0), EndsWith("\r\n\r\nthe body"));
}

TEST_F(CFileUploadTest, postsOnceUnlessItMayDoSoTwice)
{
    write("the body");
    options().post = true;
    take(8, "HTTP/1.1 503 Busy\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Temporary);
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CFileUploadTest, putsAllOfItAgainBehindAFailureThatMayGoAway)
{
    write("the body");
    server().onConnection().readHead().readBytes(4).closeHard();
    take(8, "HTTP/1.1 503 Busy\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    take(8);
    upload()->run();
    EXPECT_THAT(received(2), EndsWith("\r\n\r\nthe body"));
}

TEST_F(CFileUploadTest, endsBehindTheAttemptsThatItHas)
{
    write("the body");
    options().retries.attempts = 2;
    server().onConnection().readHead().readBytes(8).closeHard();
    server().onConnection().readHead().readBytes(8).closeHard();
    ASSERT_TRUE(failure());
    EXPECT_EQ(server().connectionCount(), 2u);
}

TEST_F(CFileUploadTest, saysThatThereIsAFileAlready)
{
    write("the body");
    take(8, "HTTP/1.1 412 Precondition Failed\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "There is a file '" + server().url("/file") + "' already.");
}

TEST_F(CFileUploadTest, saysThatTheFileThereMayBeItsOwn)
{
    write("the body");
    server().onConnection().readHead().readBytes(8).closeHard();
    take(8, "HTTP/1.1 412 Precondition Failed\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("unless it is this one"));
}

TEST_F(CFileUploadTest, tellsWhyTheServerRefuses)
{
    write("the body");
    take(8, "HTTP/1.1 403 No\r\nConnection: close\r\nContent-Type: text/plain\r\nContent-Length: 8\r\n\r\nnot here");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Denied);
    EXPECT_THAT(norla::explain(*error).toUTF8(), HasSubstr("not here"));
}

TEST_F(CFileUploadTest, anAnswerBeforeTheEndOfTheFileIsNoSuccess)
{
    writeMuch();
    options().retries = norla::CRetryPolicy::none();
    server().onConnection().readHead().send(
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    ASSERT_TRUE(failure());
}

TEST_F(CFileUploadTest, sendsNoEndOfAFileThatIsWrittenToMeanwhile)
{
    writeMuch();
    options().retries.repeatUnsafe = true;
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readToEnd();
    bool isChanged = false;
    options().onProgress = [this, &isChanged](const norla::CFileProgress& progress) {
        if (progress.done == 0 || isChanged)
            return;
        isChanged = true;
        std::fstream(source(), std::ios::in | std::ios::out).write("x", 1);
    };
    options().speedLimit = 128 << 20;
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + source().native() + "' has changed while it was sent.");
    EXPECT_LT(received(0).size(), std::filesystem::file_size(source()));
}

TEST_F(CFileUploadTest, sendsNothingOfAFileThatHasBecomeShorterBefore)
{
    write("the body");
    server().onConnection().readToEnd();
    const auto prepare = [this](norla::CNetRequest& request) {
        write("the");
        request.setURL(kx::String::fromUTF8(server().url("/file")));
    };
    const auto error = failureOf(
        *kx::newObj<norla::CFileUpload>(prepare, norla::CFileUpload::Path::fromBytes(source().native()), options()));
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + source().native() + "' has changed while it was sent.");
}

TEST_F(CFileUploadTest, namesAFileThatItCannotRead)
{
    const auto missing = failure();
    ASSERT_TRUE(missing);
    EXPECT_EQ(std::string(missing->what()),
        "The file '" + source().native() + "' cannot be read: No such file or directory.");
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CFileUploadTest, doesNotWaitForTheOtherEndOfAPipe)
{
    ASSERT_EQ(mkfifo(source().c_str(), 0600), 0);
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("it is no regular file"));
}

TEST_F(CFileUploadTest, namesASchemeOverWhichNoFilesAreSent)
{
    write("the body");
    const auto error = failureOf(*kx::newObj<norla::CFileUpload>(
        "smtp://localhost/file", norla::CFileUpload::Path::fromBytes(source().native()), options()));
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("and not over 'smtp'"));
}

TEST_F(CFileUploadTest, comparesTheSizeAtTheServerWhereItIsToldTo)
{
    write("the body");
    options().askSizeAfterwards = true;
    take(8);
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 7\r\n\r\n")
        .close();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "The file '" + source().native() + "' has 8 bytes, and what the server has of it as '" + server().url("/file")
            + "' has 7.");
    EXPECT_THAT(received(1), StartsWith("HEAD /file HTTP/1.1\r\n"));
}

TEST_F(CFileUploadTest, tellsItsProgress)
{
    write("the body");
    take(8);
    std::vector<long long> done;
    norla::CFileUpload* running = nullptr;
    FileState last = FileState::Waiting;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        done.push_back(progress.done);
        EXPECT_EQ(progress.total, 8);
        last = running->getState();
    };
    const auto file = upload();
    running = file.get();
    file->run();
    ASSERT_FALSE(done.empty());
    EXPECT_EQ(done.back(), 8);
    EXPECT_EQ(last, FileState::Finishing);
}

TEST_F(CFileUploadTest, whatProgressThrowsEndsIt)
{
    writeMuch();
    server().onConnection().readHead().readToEnd();
    options().onProgress = [](const norla::CFileProgress&) { throw kx::CError("enough"); };
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "enough");
}

TEST_F(CFileUploadTest, isCancelledAtOnce)
{
    writeMuch();
    std::promise<void> began;
    server().onConnection().readHead().stall();
    options().onProgress = [&began, isTold = false](const norla::CFileProgress&) mutable {
        if (!std::exchange(isTold, true))
            began.set_value();
    };
    const auto file = upload();
    auto cancelled = std::chrono::steady_clock::time_point::max();
    std::thread canceller([&] {
        began.get_future().wait();
        cancelled = std::chrono::steady_clock::now();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    EXPECT_LT(std::chrono::steady_clock::now() - cancelled, std::chrono::seconds(10));
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_EQ(file->getState(), FileState::Cancelled);
}

TEST_F(CFileUploadTest, beginsAnewBehindAPause)
{
    writeMuch();
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(8).stall();
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 100 Continue\r\n\r\n")
        .readBytes(std::filesystem::file_size(source()))
        .send(created)
        .close();
    norla::CFileUpload* running = nullptr;
    bool wasPaused = false;
    options().onProgress = [&](const norla::CFileProgress&) {
        if (server().connectionCount() == 1 && !std::exchange(wasPaused, true)) // nobody resumes it twice
            running->pause();
    };
    const auto file = upload();
    running = file.get();
    std::thread resumer([&] {
        while (running->getState() != FileState::Paused)
            std::this_thread::yield();
        running->resume();
    });
    const auto began = std::chrono::steady_clock::now();
    file->run();
    resumer.join();
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    EXPECT_EQ(file->getState(), FileState::Succeeded);
    EXPECT_EQ(server().connectionCount(), 2u);
}

/// A pause that comes when something of the file has, and is over once it was heeded.
class CFileUploadPauseTest : public CFileUploadTest {
protected:
    /// @param taken bytes of the file that the server reads before the pause, and @param rest behind it
    void expectOneRequest(size_t taken, size_t rest)
    {
        std::promise<void> heeded;
        server()
            .onConnection()
            .readHead()
            .send(rest > 0 ? "HTTP/1.1 100 Continue\r\n\r\n" : "")
            .readBytes(taken)
            .waitFor(heeded.get_future().share())
            .readBytes(rest)
            .send(created)
            .close();
        norla::CFileUpload* running = nullptr;
        int calls = 0; // since the pause
        options().onProgress = [&](const norla::CFileProgress&) {
            const std::string received = server().received(0);
            const size_t end = received.find("\r\n\r\n");
            if (calls > 0 || (end != std::string::npos && received.size() >= end + 4 + taken))
                ++calls;
            if (calls == 1)
                running->pause();
            if (calls == 2)
                heeded.set_value();
        };
        const auto file = upload();
        running = file.get();
        std::thread resumer([&] {
            EXPECT_TRUE(support::waitUntil([&] {
                return running->getState() != FileState::Running && running->getState() != FileState::Waiting;
            }));
            running->resume();
        });
        const auto error = failureOf(*file);
        resumer.join();
        EXPECT_FALSE(error) << error->what();
        EXPECT_EQ(server().connectionCount(), 1u);
    }
};

TEST_F(CFileUploadPauseTest, waitsForTheAnswerToAWholeFile)
{
    write("the body");
    expectOneRequest(8, 0);
}

TEST_F(CFileUploadPauseTest, waitsForTheAnswerToAWholePost)
{
    write("the body");
    options().post = true;
    options().retries.repeatUnsafe = true;
    expectOneRequest(8, 0);
}

TEST_F(CFileUploadPauseTest, waitsForTheAnswerToAnEmptyFile)
{
    write("");
    options().post = true;
    expectOneRequest(0, 0);
}

TEST_F(CFileUploadPauseTest, sendsAPostToItsEndThatMayNotBeSentTwice)
{
    writeMuch();
    options().post = true;
    constexpr size_t taken = 1 << 20;
    expectOneRequest(taken, std::filesystem::file_size(source()) - taken);
}

TEST_F(CFileUploadTest, anAnswerThatBreaksOffAtAnyByteIsNoSuccess)
{
    write("the body");
    options().retries = norla::CRetryPolicy::none();
    const std::string answer = created;
    for (size_t size = 0; size < answer.size(); ++size) {
        take(8, answer.substr(0, size));
        EXPECT_TRUE(failure()) << size;
    }
    take(8);
    EXPECT_FALSE(failure());
}

TEST_F(CFileUploadTest, whatTheFirstServerTookIsNotWhatTheSecondOneHas)
{
    writeMuch();
    options().retries = norla::CRetryPolicy::none();
    const size_t size = 64 << 20;
    take(size,
        "HTTP/1.1 307 Go on\r\nConnection: close\r\nContent-Length: 0\r\nLocation: " + server().url("/other")
            + "\r\n\r\n");
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n")
        .closeHard();
    EXPECT_TRUE(failure());
}

TEST_F(CFileUploadTest, goesWhereRedirectsLead)
{
    write("the body");
    for (const char* status : {"307 There", "308 There", "303 See"}) {
        take(8,
            "HTTP/1.1 " + std::string(status)
                + "\r\nConnection: close\r\nContent-Length: 0\r\nLocation: " + server().url("/other") + "\r\n\r\n");
        take(std::string(status) == "303 See" ? 0 : 8);
        const auto error = failure();
        EXPECT_FALSE(error) << status << ": " << error->what();
    }
    EXPECT_THAT(received(1), EndsWith("\r\n\r\nthe body"));
    EXPECT_THAT(received(5), StartsWith("GET /other "));
}

TEST_F(CFileUploadTest, anAnswerThatRefusesEarlyIsToldAtOnce)
{
    writeMuch();
    options().retries = norla::CRetryPolicy::none();
    for (const char* status : {"401 Who", "403 No", "413 Too large", "417 No", "503 Busy"}) {
        server().onConnection().readHead().send(
            "HTTP/1.1 " + std::string(status) + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
        const auto error = failure();
        ASSERT_TRUE(error) << status;
    }
}

TEST_F(CFileUploadTest, headersThatAreLeftOutStayLeftOut)
{
    write("the body");
    take(8);
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Accept", "");
    headers->addEmpty("X-Empty");
    const auto prepare = [this, headers](norla::CNetRequest& request) {
        request.setURL(kx::String::fromUTF8(server().url("/file")));
        request.setCustomHTTPHeaders(headers.get());
    };
    kx::newObj<norla::CFileUpload>(prepare, norla::CFileUpload::Path::fromBytes(source().native()), options())->run();
    EXPECT_THAT(received(0), Not(HasSubstr("Accept:")));
    EXPECT_THAT(received(0), HasSubstr("\r\nX-Empty:"));
}

TEST_F(CFileUploadTest, aServerThatSpeaksForeverIsAnError)
{
    write("the body");
    options().retries = norla::CRetryPolicy::none();
    const std::string early = "HTTP/1.1 103 Early Hints\r\nX: " + std::string(1000, 'x') + "\r\n\r\n";
    server().onConnection().readHead().readBytes(8).sendRepeated(early, 10'000).close();
    EXPECT_TRUE(failure());
    server().onConnection().sendRepeated("220-" + std::string(1000, 'x') + "\r\n", 10'000).close();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    EXPECT_TRUE(failureOf(*file));
}

/// A server of FTP: the next connection takes commands, up to the first question for a size, which was read.
support::CScript& greetByFTP(support::CScriptedServer& server)
{
    support::CScript& script = server.onConnection();
    for (const char* reply : {"220 hello", "331 password", "230 in", "257 \"/\"", "200 type I"})
        script.send(std::string(reply) + "\r\n").readUntil("\r\n");
    return script; // each reply but the first is to the line that was read before
}

std::string passiveReply(const support::CScriptedServer& server)
{
    return "229 there (|||" + std::to_string(server.getPort()) + "|)\r\n";
}

/// The same up to the rename: the connection behind it takes the file.
support::CScript& takeByFTP(
    support::CScriptedServer& server, const std::string& data, const std::string& size = "550 no part")
{
    support::CScript& script = greetByFTP(server).send(size + "\r\n").readUntil("\r\n").send(passiveReply(server));
    script.readUntil("STOR ").readUntil("\r\n").send("150 send\r\n");
    server.onConnection().readBytes(data.size()).readToEnd();
    return script;
}

/// Whether the file's connection has brought that, which its own thread reads: within 20 seconds.
bool hasTaken(const support::CScriptedServer& server, const std::string& data)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (server.received(1) != data && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    return server.received(1) == data;
}

TEST_F(CFileUploadTest, findsTheFileUnderItsNameWhereTheAnswerToTheRenameIsLost)
{
    write("the body");
    options().overwrite = true;
    support::CScript& first = takeByFTP(server(), "the body");
    first.send("226 done\r\n").readUntil("SIZE ").readUntil("\r\n").send("213 8\r\n");
    first.readUntil("REST 0\r\n").send("350 go on\r\n").readUntil("RNFR ").readUntil("\r\n").send("350 to\r\n");
    first.readUntil("RNTO file\r\n").closeHard();
    support::CScript& second = server().onConnection();
    for (const char* reply : {"220 hello", "331 password", "230 in", "257 \"/\"", "200 type I", "550 no part", "213 8"})
        second.send(std::string(reply) + "\r\n").readUntil("\r\n");
    second.send("350 go on\r\n").readToEnd();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    EXPECT_FALSE(error) << error->what();
    EXPECT_TRUE(hasTaken(server(), "the body"));
    EXPECT_THAT(server().received(2), HasSubstr("SIZE file\r\n"));
    EXPECT_THAT(server().received(2), Not(HasSubstr("RNFR")));
}

TEST_F(CFileUploadTest, aFileOfWhichTheServerHasAnotherSizeIsNoSuccess)
{
    write("the body");
    options().overwrite = true;
    for (const char* size : {"213 7", "213 9", "213 -8", "213 88888888888888888888", "213 eight"}) {
        const size_t first = server().connectionCount();
        support::CScript& script = takeByFTP(server(), "the body");
        script.send("226 done\r\n").readUntil("SIZE ").readUntil("\r\n").send(std::string(size) + "\r\n");
        script.closeHard();
        options().pool = kx::newObj<norla::CTransferPool>(); // and so another connection
        const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
            norla::CFileUpload::Path::fromBytes(source().native()), options());
        EXPECT_TRUE(failureOf(*file)) << size;
        EXPECT_THAT(server().received(first), Not(HasSubstr("RNFR"))) << size;
    }
}

// Its confirmation of the end of the file is all that it tells.
TEST_F(CFileUploadTest, aServerThatTellsNoSizeAfterwardsIsBelieved)
{
    write("the body");
    options().overwrite = true;
    support::CScript& script = takeByFTP(server(), "the body");
    script.send("226 done\r\n").readUntil("SIZE ").readUntil("\r\n").send("502 no such command\r\n");
    script.readUntil("REST 0\r\n").send("350 go on\r\n").readUntil("RNFR ").readUntil("\r\n").send("350 to\r\n");
    script.readUntil("RNTO file\r\n").send("250 it has its name\r\n").readToEnd();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    EXPECT_FALSE(error) << error->what();
    EXPECT_THAT(server().received(0), HasSubstr("RNTO file\r\n"));
    EXPECT_TRUE(hasTaken(server(), "the body"));
}

TEST_F(CFileUploadTest, aServerThatMayNotTellTheSizeAfterwardsIsBelieved)
{
    write("the body");
    options().overwrite = true;
    options().retries = norla::CRetryPolicy::none();
    support::CScript& script = takeByFTP(server(), "the body");
    script.send("226 done\r\n").readUntil("SIZE ").readUntil("\r\n").send("550 Permission denied.\r\n");
    for (int i = 0; i < 3; ++i) // RNFR and RNTO, and before them a CWD at times
        script.readUntil("\r\n").send("250 well\r\n");
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    EXPECT_FALSE(error) << error->what();
    EXPECT_THAT(server().received(0), HasSubstr("RNTO file\r\n"));
    EXPECT_THAT(server().received(0), Not(HasSubstr("DELE")));
}

TEST_F(CFileUploadTest, replacesNoFileOfWhichTheServerMayNotTell)
{
    write("the body");
    options().temporaryName = false;
    takeByFTP(server(), "the body", "550 Permission denied.")
        .send("226 done\r\n")
        .readUntil("SIZE ")
        .readUntil("\r\n")
        .send("213 8\r\n")
        .readUntil("\r\n")
        .send("350 go on\r\n")
        .readToEnd();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("It cannot be told whether there is a file"));
    EXPECT_THAT(server().received(0), Not(HasSubstr("STOR")));
}

TEST_F(CFileUploadTest, aNameThatSoundsLikeARefusalIsNone)
{
    write("the body");
    options().temporaryName = false;
    takeByFTP(server(), "the body", "550 permission.txt: No such file or directory")
        .send("226 done\r\n")
        .readUntil("SIZE ")
        .readUntil("\r\n")
        .send("213 8\r\n")
        .readUntil("\r\n")
        .send("350 go on\r\n")
        .readToEnd();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/permission.txt", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    const auto error = failureOf(*file);
    EXPECT_FALSE(error) << error->what();
    EXPECT_TRUE(hasTaken(server(), "the body"));
}

/// Goes in the middle of what the next connection is sent by that command. @param hasDeletion of an older part before
void loseByFTP(support::CScriptedServer& server, const std::string& command, bool hasDeletion = false)
{
    support::CScript& script = server.onConnection();
    for (const char* reply : {"220 hello", "331 password", "230 in", "257 \"/\""})
        script.send(std::string(reply) + "\r\n").readUntil("\r\n");
    script.send(passiveReply(server)).readUntil("TYPE I\r\n").send("200 type I\r\n");
    if (hasDeletion)
        script.readUntil("DELE ").readUntil("\r\n").send("250 gone\r\n");
    script.readUntil(command + " ").readUntil("\r\n").send("150 send\r\n").closeHard();
    server.onConnection().readToEnd();
}

/// Has that as the part, and shows it; then libcurl ends the connection.
void showByFTP(support::CScriptedServer& server, const std::string& part)
{
    const std::string size = "213 " + std::to_string(part.size()) + "\r\n";
    support::CScript& script = greetByFTP(server).send(size).readUntil("REST 0\r\n").send("350 go on\r\n");
    script.readUntil("EPSV\r\n").send(passiveReply(server)).readUntil("SIZE ").readUntil("\r\n").send(size);
    script.readUntil("RETR ").readUntil("\r\n").send("150 take\r\n226 done\r\n").readUntil("QUIT\r\n").closeHard();
    server.onConnection().send(part).close();
}

TEST_F(CFileUploadTest, aPartThatIsLostAgainAndAgainEndsIt)
{
    write("the body");
    options().overwrite = true;
    options().retries.attempts = 3;
    support::CScript& first = greetByFTP(server()).send("550 no part\r\n").readUntil("EPSV\r\n");
    first.send(passiveReply(server())).readUntil("STOR ").readUntil("\r\n").send("150 send\r\n").closeHard();
    server().onConnection().readToEnd();
    for (int i = 0; i < 4; ++i) {
        showByFTP(server(), "the ");
        loseByFTP(server(), "APPE");
        showByFTP(server(), "others");
        loseByFTP(server(), "STOR", true);
    }
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    EXPECT_TRUE(failureOf(*file));
    EXPECT_EQ(server().connectionCount(), 14u); // the second attempt alone has found more than the one before it
}

TEST_F(CFileUploadTest, aServerThatTellsNoSizeMustConfirmTheEndOfTheFile)
{
    write("the body");
    options().overwrite = true;
    options().retries = norla::CRetryPolicy::none();
    support::CScript& script = takeByFTP(server(), "the body");
    script.send("426 half of it\r\n").readUntil("SIZE ").readUntil("\r\n").send("502 no such command\r\n");
    script.readUntil("REST 0\r\n").send("350 go on\r\n").readUntil("RNFR ").closeHard();
    const auto file = kx::newObj<norla::CFileUpload>(kx::String::fromUTF8(server().url("/file", "ftp")),
        norla::CFileUpload::Path::fromBytes(source().native()), options());
    EXPECT_TRUE(failureOf(*file));
    EXPECT_THAT(server().received(0), Not(HasSubstr("RNFR")));
}

TEST_F(CFileUploadTest, refusesOptionsThatMakeNoSense)
{
    options().speedLimit = -1;
    EXPECT_THROW(upload(), kx::CError);
}

} // namespace
