#include "norla/core/CSending.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace {

using norla::CSending;
using Texts = std::vector<std::string>;

/// Gives a text; notes where it is sought.
class CTextSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CTextSource(std::string text)
        : m_text(std::move(text))
    {
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap&) override
    {
        const size_t count = m_text.copy(reinterpret_cast<char*>(buffer), static_cast<size_t>(size), m_position);
        m_position += count;
        return static_cast<int>(count);
    }

    long long getLength() override { return m_length; }

    void seek(long long position) override
    {
        m_seeks.push_back(position);
        m_position = static_cast<size_t>(position);
    }

    long long getPosition() override { return static_cast<long long>(m_position); }

    const std::string m_text;
    long long m_length = -1;
    size_t m_position = 0;
    std::vector<long long> m_seeks;
};

class CSendingTest : public testing::Test {
protected:
    std::string read(int size = 100)
    {
        std::array<char, 100> buffer{};
        return {buffer.data(), m_sending.read(buffer.data(), size, {})};
    }

    /// The options that the action sets.
    template <typename TAction>
    Texts optionsOf(TAction action)
    {
        m_calls.takeOptions();
        action();
        return m_calls.takeOptions();
    }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    CSending m_sending{m_handle};
    const kx::P<CTextSource> m_source = kx::newObj<CTextSource>("0123456789");
};

TEST_F(CSendingTest, hasNoMethodAtFirst)
{
    EXPECT_TRUE(m_sending.getMethod().isEmpty());
}

TEST_F(CSendingTest, switchesAMethodOnBehindAllOthers)
{
    EXPECT_EQ(optionsOf([this] { m_sending.setMethod("HEAD"); }),
        Texts({"CUSTOMREQUEST=null", "HTTPGET=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "NOBODY=1"}));
    EXPECT_EQ(m_sending.getMethod(), "HEAD");
}

TEST_F(CSendingTest, givesAPostTheSizeOfItsBody)
{
    m_sending.setSize(7);
    EXPECT_EQ(optionsOf([this] { m_sending.setMethod("POST"); }),
        Texts({"CUSTOMREQUEST=null", "HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=1", "POSTFIELDSIZE_LARGE=7"}));
    EXPECT_EQ(optionsOf([this] { m_sending.setSize(8); }), Texts({"INFILESIZE_LARGE=8", "POSTFIELDSIZE_LARGE=8"}));
}

TEST_F(CSendingTest, passesOtherMethodsOnAsText)
{
    EXPECT_EQ(optionsOf([this] { m_sending.setMethod("DELETE"); }),
        Texts({"HTTPGET=0", "NOBODY=0", "UPLOAD=0", "POST=0", "POSTFIELDSIZE_LARGE=0", "CUSTOMREQUEST=DELETE"}));
}

TEST_F(CSendingTest, keepsTheMethodThatLibcurlRefusesToReplace)
{
    m_sending.setMethod("PUT");
    m_calls.failOption(CURLOPT_CUSTOMREQUEST);
    EXPECT_THROW(m_sending.setMethod("DELETE"), kx::CError);
    EXPECT_EQ(m_sending.getMethod(), "PUT");
}

TEST_F(CSendingTest, sendsNothingWithoutASource)
{
    EXPECT_EQ(read(), "");
}

TEST_F(CSendingTest, sendsWhatTheSourceGives)
{
    m_sending.setSource(m_source.get());
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(), "456789");
    EXPECT_EQ(read(), "");
}

TEST_F(CSendingTest, sendsNoMoreThanItsSize)
{
    m_sending.setSource(m_source.get());
    m_sending.setSize(6);
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(4), "45");
    EXPECT_EQ(read(4), "");
}

TEST_F(CSendingTest, saysHowMuchOfItsSizeIsMissing)
{
    m_sending.setSource(m_source.get());
    m_sending.setSize(12);
    EXPECT_EQ(read(), "0123456789");
    EXPECT_EQ(
        support::messageOf([this] { read(); }), "The data to be sent have ended 2 bytes before their size of 12.");
}

TEST_F(CSendingTest, sendsACopyOfAText)
{
    EXPECT_EQ(optionsOf([this] { m_sending.setText(L"\u00fc"); }), Texts({"INFILESIZE_LARGE=2"}));
    EXPECT_EQ(read(), "\u00fc");
}

TEST_F(CSendingTest, sendsABuffer)
{
    norla::CNetRequest::Buffer buffer;
    buffer.append(reinterpret_cast<const unsigned char*>("bytes"), 5);
    EXPECT_EQ(optionsOf([&] { m_sending.setBuffer(buffer); }), Texts({"INFILESIZE_LARGE=5"}));
    EXPECT_EQ(read(), "bytes");
}

TEST_F(CSendingTest, forgetsTheSizeOfAnotherBody)
{
    m_sending.setText("text");
    EXPECT_EQ(optionsOf([this] { m_sending.setSource(m_source.get()); }), Texts({"INFILESIZE_LARGE=-1"}));
    EXPECT_EQ(read(), "0123456789");
}

TEST_F(CSendingTest, keepsASizeThatWasSetByItself)
{
    m_sending.setSize(3);
    EXPECT_EQ(optionsOf([this] { m_sending.setSource(m_source.get()); }), Texts());
    EXPECT_EQ(read(), "012");
}

TEST_F(CSendingTest, letsLibcurlCopyABody)
{
    EXPECT_EQ(
        optionsOf([this] { m_sending.setCopiedBody("a=b"); }), Texts({"POSTFIELDSIZE_LARGE=3", "COPYPOSTFIELDS=set"}));
    EXPECT_THROW(m_sending.requireWithinCopiedBody(4), kx::CError);
    EXPECT_NO_THROW(m_sending.requireWithinCopiedBody(3));
}

TEST_F(CSendingTest, takesACopiedBodyBackForASource)
{
    m_sending.setMethod("PUT");
    m_sending.setCopiedBody("a=b");
    const Texts options = optionsOf([this] { m_sending.setSource(m_source.get()); });
    ASSERT_GE(options.size(), 3U);
    EXPECT_EQ(options[0], "POSTFIELDS=null");
    EXPECT_EQ(options[1], "POSTFIELDSIZE_LARGE=-1");
    EXPECT_EQ(options.back(), "INFILESIZE_LARGE=-1");
    EXPECT_NE(std::find(options.begin(), options.end(), "UPLOAD=1"), options.end()); // it is a PUT again
    EXPECT_NO_THROW(m_sending.requireWithinCopiedBody(4));
}

TEST_F(CSendingTest, rewindsASourceThatHasMoved)
{
    m_sending.setSource(m_source.get());
    m_sending.rewind();
    EXPECT_TRUE(m_source->m_seeks.empty());
    read(4);
    m_sending.rewind();
    EXPECT_EQ(m_source->m_seeks, std::vector<long long>{0});
}

TEST_F(CSendingTest, countsItsSizeAnewWithEachTransfer)
{
    m_sending.setSource(m_source.get());
    m_sending.setSize(4);
    EXPECT_EQ(read(), "0123");
    m_sending.begin();
    m_sending.rewind();
    EXPECT_EQ(read(), "0123");
}

TEST_F(CSendingTest, seeksFromStartPositionAndEnd)
{
    m_source->m_length = 10;
    m_sending.setSource(m_source.get());
    EXPECT_TRUE(m_sending.seek(4, SEEK_SET));
    EXPECT_TRUE(m_sending.seek(2, SEEK_CUR));
    EXPECT_TRUE(m_sending.seek(-1, SEEK_END));
    EXPECT_EQ(m_source->m_seeks, (std::vector<long long>{4, 6, 9}));
}

TEST_F(CSendingTest, cannotSeekWhereNothingIsKnown)
{
    EXPECT_FALSE(m_sending.seek(0, SEEK_SET)); // no source
    m_sending.setSource(m_source.get());
    EXPECT_FALSE(m_sending.seek(-1, SEEK_END));
    EXPECT_FALSE(m_sending.seek(0, 77));
    EXPECT_TRUE(m_source->m_seeks.empty());
}

TEST_F(CSendingTest, countsItsSizeFromWhereItWasSought)
{
    m_sending.setSource(m_source.get());
    m_sending.setSize(6);
    read();
    EXPECT_TRUE(m_sending.seek(2, SEEK_SET));
    EXPECT_EQ(read(), "2345");
}

TEST_F(CSendingTest, takesARewindOfAnEarlierTransferForDone)
{
    m_sending.noticeFailedRewind();
    m_sending.begin();
    EXPECT_TRUE(m_sending.seek(0, SEEK_SET)); // although there is no source
    EXPECT_FALSE(m_sending.seek(0, SEEK_SET));
}

TEST_F(CSendingTest, takesNoOtherSeekForDone)
{
    m_sending.noticeFailedRewind();
    EXPECT_FALSE(m_sending.seek(1, SEEK_SET));
}

TEST_F(CSendingTest, hidesRecipientsWhereThereAreSome)
{
    EXPECT_EQ(optionsOf([this] { m_sending.hideRecipients(); }), Texts());
    EXPECT_EQ(optionsOf([this] { m_sending.showRecipients(); }), Texts());
    curl_slist* const list = curl_slist_append(nullptr, "a@host");
    m_sending.noticeRecipients(list);
    EXPECT_EQ(optionsOf([this] { m_sending.hideRecipients(); }), Texts({"MAIL_RCPT=null"}));
    EXPECT_EQ(optionsOf([this] { m_sending.showRecipients(); }), Texts({"MAIL_RCPT=[a@host]"}));
    curl_slist_free_all(list);
}

TEST_F(CSendingTest, knowsAMailThatWasNeverAskedFor)
{
    EXPECT_FALSE(m_sending.isUnsentMail());
    m_sending.setUpload(true);
    EXPECT_TRUE(m_sending.isUnsentMail());
    read();
    EXPECT_FALSE(m_sending.isUnsentMail());
    m_sending.begin();
    EXPECT_TRUE(m_sending.isUnsentMail());
    int recipients = 0;
    m_sending.noticeRecipients(&recipients);
    EXPECT_FALSE(m_sending.isUnsentMail());
}

TEST_F(CSendingTest, forgetsWhatAResetForgets)
{
    m_sending.setMethod("POST");
    m_sending.setCopiedBody("a=b");
    int recipients = 0;
    m_sending.noticeRecipients(&recipients);
    m_sending.setUpload(true);
    m_sending.forgetSource();
    m_sending.forgetOptions();
    EXPECT_TRUE(m_sending.getMethod().isEmpty());
    EXPECT_FALSE(m_sending.hasRecipients());
    EXPECT_FALSE(m_sending.isUnsentMail());
    EXPECT_NO_THROW(m_sending.requireWithinCopiedBody(100));
    EXPECT_EQ(optionsOf([this] { m_sending.setSource(m_source.get()); }), Texts());
    m_sending.forgetSource();
    EXPECT_EQ(read(), "");
}

} // namespace
