#include "norla/core/CSideEffects.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CSigPipeBlock.h"
#include "norla/core/CTransferRecord.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CScriptedServer.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

/// Options beside a transfer that found nobody there.
class CSideEffectsTest : public testing::Test {
protected:
    CSideEffectsTest()
    {
        m_handle.setNumber(CURLOPT_NOSIGNAL, 1);
        m_handle.setText(CURLOPT_PROXY, "");
        m_handle.setNumber(CURLOPT_TIMEOUT, 20);
    }

    bool areHarmless(const std::string& scheme)
    {
        perform(scheme + "://127.0.0.1:" + std::to_string(m_port.getPort()) + "/a");
        return m_effects.areHarmless(m_record);
    }

    void perform(const std::string& url)
    {
        m_handle.setText(CURLOPT_URL, url);
        m_record.begin();
        const norla::CSigPipeBlock block;
        curl_easy_perform(m_handle.get());
        m_record.end();
    }

    void setNumber(CURLoption option, long value)
    {
        m_handle.setNumber(option, value);
        m_effects.noticeNumber(option, value);
    }

    support::CRefusedPort m_port;
    norla::CEasyHandle m_handle;
    norla::CTransferRecord m_record{m_handle};
    norla::CSideEffects m_effects;
};

TEST_F(CSideEffectsTest, areUnknownBeforeATransfer)
{
    EXPECT_FALSE(m_effects.areHarmless(m_record));
}

TEST_F(CSideEffectsTest, fetchingDoesNoHarm)
{
    for (const char* scheme : {"http", "https", "ftp", "ftps", "sftp", "HTTP"})
        EXPECT_TRUE(areHarmless(scheme)) << scheme;
}

TEST_F(CSideEffectsTest, whatNobodyKnowsMayDoHarm)
{
    for (const char* scheme : {"imap", "dict", "telnet"})
        EXPECT_FALSE(areHarmless(scheme)) << scheme;
}

TEST_F(CSideEffectsTest, schemeThatLibcurlGuessesCounts)
{
    perform("127.0.0.1:" + std::to_string(m_port.getPort()) + "/a");
    EXPECT_TRUE(m_effects.areHarmless(m_record));
}

TEST_F(CSideEffectsTest, storingAFileDoesNoHarm)
{
    m_handle.setNumber(CURLOPT_UPLOAD, 1);
    for (const char* scheme : {"http", "ftp", "sftp"})
        EXPECT_TRUE(areHarmless(scheme)) << scheme;
}

TEST_F(CSideEffectsTest, appendingToAFileDoesHarm)
{
    m_handle.setNumber(CURLOPT_UPLOAD, 1);
    for (const CURLoption option : {CURLOPT_APPEND, CURLOPT_RESUME_FROM, CURLOPT_RESUME_FROM_LARGE}) {
        m_effects.noticeNumber(option, 1);
        EXPECT_FALSE(areHarmless("ftp")) << option;
        EXPECT_FALSE(areHarmless("sftp")) << option;
        m_effects.noticeNumber(option, 0);
        EXPECT_TRUE(areHarmless("ftp")) << option;
    }
}

TEST_F(CSideEffectsTest, goingOnWithADownloadDoesNoHarm)
{
    m_effects.noticeNumber(CURLOPT_RESUME_FROM_LARGE, 5);
    m_effects.noticeNumber(CURLOPT_APPEND, 1);
    EXPECT_TRUE(areHarmless("ftp"));
}

TEST_F(CSideEffectsTest, commandsMayDoHarm)
{
    for (const CURLoption option : {CURLOPT_QUOTE, CURLOPT_PREQUOTE, CURLOPT_POSTQUOTE}) {
        m_effects.noticePointer(option, true);
        EXPECT_FALSE(areHarmless("ftp")) << option;
        EXPECT_FALSE(areHarmless("sftp")) << option;
        m_effects.noticePointer(option, false);
        EXPECT_TRUE(areHarmless("ftp")) << option;
    }
}

TEST_F(CSideEffectsTest, onlyListingsAreCommandsThatDoNoHarm)
{
    for (const char* command : {"MLSD", "LIST", "LIST -a", "NLST"}) {
        m_handle.setText(CURLOPT_CUSTOMREQUEST, command);
        EXPECT_TRUE(areHarmless("ftp")) << command;
    }
    for (const char* command : {"DELE a", "LISTEN", "MLSDX"}) {
        m_handle.setText(CURLOPT_CUSTOMREQUEST, command);
        EXPECT_FALSE(areHarmless("ftp")) << command;
    }
}

TEST_F(CSideEffectsTest, mailIsHarmlessUntilTheServerTakesItsData)
{
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> recipients(
        curl_slist_append(nullptr, "<them@example.org>"), &curl_slist_free_all);
    m_handle.set(CURLOPT_MAIL_RCPT, recipients.get());
    m_handle.setText(CURLOPT_MAIL_FROM, "<me@example.org>");
    m_handle.setNumber(CURLOPT_UPLOAD, 1);
    m_handle.set(
        CURLOPT_READFUNCTION, +[](char*, size_t, size_t, void*) -> size_t { return 0; });
    m_handle.set(
        CURLOPT_HEADERFUNCTION, +[](char* line, size_t size, size_t count, void* record) -> size_t {
            static_cast<norla::CTransferRecord*>(record)->noticeLine({line, size * count}, false);
            return size * count;
        });
    m_handle.set(CURLOPT_HEADERDATA, &m_record);
    for (const bool isTaken : {false, true}) {
        support::CScriptedServer server;
        support::CScript& script = server.onConnection().send("220 hi\r\n").readUntil("\r\n").send("250 hi\r\n");
        script.readUntil("\r\n").send("250 ok\r\n").readUntil("\r\n");
        if (isTaken)
            script.send("250 ok\r\n").readUntil("DATA\r\n").send("354 go\r\n").readUntil(".\r\n");
        script.send("451 later\r\n");
        perform(server.url("/", "smtp"));
        EXPECT_EQ(m_effects.areHarmless(m_record), !isTaken);
    }
    m_handle.setNull(CURLOPT_MAIL_RCPT);
}

TEST_F(CSideEffectsTest, areForgottenWithTheOptions)
{
    m_handle.setNumber(CURLOPT_UPLOAD, 1);
    m_effects.noticeNumber(CURLOPT_APPEND, 1);
    m_effects.noticePointer(CURLOPT_QUOTE, true);
    m_effects.forgetOptions();
    EXPECT_TRUE(areHarmless("ftp"));
}

} // namespace
