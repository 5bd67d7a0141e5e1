#include "kx/base/CInvalidArgError.h"
#include "norla/core/CAcceptEncoding.h"
#include "norla/core/explain.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

namespace {

/// The text, so many times, packed by the encodings in turn.
std::string packed(const std::string& text, size_t count, const std::vector<std::string>& encodings)
{
    std::vector<std::string> arguments
        = {"/usr/bin/python3", NORLA_CORE_TESTS_DIR "/pack.py", text, std::to_string(count)};
    arguments.insert(arguments.end(), encodings.begin(), encodings.end());
    const support::CProcessRun run({.arguments = arguments, .package = "python3"});
    EXPECT_EQ(run.errors(), "");
    return run.output();
}

/// Counts what it gets.
class CCountingSink : public kx::CBase, public virtual norla::IDataSink {
public:
    int write(const unsigned char*, int size, int, const HeaderMap&) override
    {
        m_size += size;
        return size;
    }

    long long m_size = 0;
};

class CNetRequestEncodingTest : public CRequestFixture {
protected:
    CNetRequestEncodingTest() { request().setReceiveDataSink(m_sink.get()); }

    kx::String failureMessage()
    {
        const auto error = failureOf();
        return error ? error->getMessage() : "(no error)";
    }

    const kx::P<CCountingSink> m_sink = kx::newObj<CCountingSink>();
};

constexpr long long mebibyte = 1 << 20;

class CEachEncodingTest : public CRequestFixture, public testing::WithParamInterface<const char*> {};

TEST_P(CEachEncodingTest, isAskedForByNameAndUnpacked)
{
    answer(ok(packed("some text ", 3, {GetParam()}), "Content-Encoding: " + std::string(GetParam()) + "\r\n"));
    request().setAcceptEncoding({.encodings = kx::String::fromUTF8(GetParam())});
    performPath();
    EXPECT_EQ(body(), "some text some text some text ");
    EXPECT_NE(received().find("\r\nAccept-Encoding: " + std::string(GetParam()) + "\r\n"), std::string::npos);
}

TEST_P(CEachEncodingTest, isAnErrorWhenItsBytesAreOthers)
{
    std::string bytes = packed("some text ", 3, {GetParam()});
    for (char& byte : bytes)
        byte = static_cast<char>(~byte);
    answer(ok(bytes, "Content-Encoding: " + std::string(GetParam()) + "\r\n"));
    request().setAcceptEncoding({});
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_BAD_CONTENT_ENCODING);
    expectGoodTransfer();
}

INSTANTIATE_TEST_SUITE_P(All, CEachEncodingTest, testing::Values("gzip", "deflate", "br", "zstd"),
    [](const testing::TestParamInfo<const char*>& name) { return std::string(name.param); });

TEST_F(CNetRequestEncodingTest, asksForAllThatLibcurlHas)
{
    answer(ok(""));
    request().setAcceptEncoding({});
    performPath();
    EXPECT_NE(received().find("\r\nAccept-Encoding: deflate, gzip, br, zstd\r\n"), std::string::npos);
}

TEST_F(CNetRequestEncodingTest, asksForNothingAtFirstAndAfterAReset)
{
    answer(ok(""));
    request().setAcceptEncoding({.maxSize = 1});
    request().reset();
    performPath();
    EXPECT_EQ(received().find("Accept-Encoding"), std::string::npos);
    expectGoodTransfer(); // of four bytes
}

TEST_F(CNetRequestEncodingTest, unpacksNothingThatItHasNotAskedFor)
{
    const std::string bytes = packed("0", mebibyte, {"gzip"});
    answer(ok(bytes, "Content-Encoding: gzip\r\n"));
    performPath();
    EXPECT_EQ(m_sink->m_size, static_cast<long long>(bytes.size()));
}

TEST_F(CNetRequestEncodingTest, refusesAnEncodingThatNobodyKnows)
{
    EXPECT_EQ(support::messageOf([this] { request().setAcceptEncoding({.encodings = "gzip, lzma"}); }),
        "Invalid argument passed to 'CNetRequest::setAcceptEncoding': there is no content encoding 'lzma'.");
    answer(ok(""));
    performPath();
    EXPECT_EQ(received().find("Accept-Encoding"), std::string::npos);
}

TEST_F(CNetRequestEncodingTest, endsABodyThatUnpacksBeyondAllMeasure)
{
    answer(ok(packed("0", 64 * mebibyte, {"gzip"}), "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({});
    const auto error = failureOf();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_FILESIZE_EXCEEDED);
    EXPECT_EQ(error->getMessage(),
        "Maximum file size exceeded: the unpacked body has more than 250 times the bytes that have come (response "
        "code: http 200)");
    EXPECT_LT(m_sink->m_size, 20 * mebibyte);
    expectGoodTransfer();
}

TEST_F(CNetRequestEncodingTest, endsABodyThatWasPackedTwice)
{
    answer(ok(packed("0", 64 * mebibyte, {"gzip", "gzip"}), "Content-Encoding: gzip, gzip\r\n"));
    request().setAcceptEncoding({});
    EXPECT_TRUE(failureMessage().startsWith("Maximum file size exceeded: "));
    EXPECT_LE(m_sink->m_size, norla::CAcceptEncoding::ratioFrom);
}

TEST_F(CNetRequestEncodingTest, endsAChunkedBodyThatUnpacksBeyondAllMeasure)
{
    const std::string bytes = packed("0", 64 * mebibyte, {"br"});
    std::array<char, 20> size{};
    std::snprintf(size.data(), size.size(), "%zx\r\n", bytes.size());
    answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Encoding: br\r\n\r\n" + std::string(size.data())
        + bytes + "\r\n0\r\n\r\n");
    request().setAcceptEncoding({});
    EXPECT_TRUE(failureMessage().startsWith("Maximum file size exceeded: "));
}

TEST_F(CNetRequestEncodingTest, takesWhatUnpacksBeyondAllMeasureWithoutARatio)
{
    answer(ok(packed("0", 64 * mebibyte, {"gzip"}), "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({.maxRatio = 0});
    performPath();
    EXPECT_EQ(m_sink->m_size, 64 * mebibyte);
}

TEST_F(CNetRequestEncodingTest, takesALargeBodyOfAnOrdinaryRatio)
{
    answer(ok(packed("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", 300'000, {"gzip"}),
        "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({.maxRatio = 400});
    performPath();
    EXPECT_EQ(m_sink->m_size, 62 * 300'000);
}

TEST_F(CNetRequestEncodingTest, takesAllOfASmallBodyOfAnyRatio)
{
    answer(ok(packed("0", 9 * mebibyte, {"zstd"}), "Content-Encoding: zstd\r\n"));
    request().setAcceptEncoding({});
    performPath();
    EXPECT_EQ(m_sink->m_size, 9 * mebibyte);
}

TEST_F(CNetRequestEncodingTest, endsABodyThatIsLargerThanItMayBe)
{
    answer(ok(packed("some text ", 1000, {"gzip"}), "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({.maxSize = 9999});
    EXPECT_EQ(failureMessage(),
        "Maximum file size exceeded: the unpacked body has more than 9999 bytes (response code: http 200)");
}

TEST_F(CNetRequestEncodingTest, saysWhoseBodyUnpacksToTooMuch)
{
    answer(ok(packed("some text ", 1000, {"gzip"}), "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({.maxSize = 9999});
    const auto error = failureOf("/a?secret");
    ASSERT_TRUE(error);
    const auto& details = dynamic_cast<const norla::CCURLError&>(*error).getDetails();
    const std::string host = server().url("").substr(std::string("http://").size());
    EXPECT_EQ(details.host.toUTF8(), host);
    EXPECT_EQ(details.path, "/a");
    EXPECT_EQ(details.phase, norla::TransferPhase::Receiving);
    EXPECT_EQ(norla::explain(*error).toUTF8(),
        "The answer of the server " + host + " about '/a' is too large: the unpacked body has more than 9999 bytes.");
}

TEST_F(CNetRequestEncodingTest, takesABodyThatIsAsLargeAsItMayBe)
{
    answer(ok(packed("some text ", 1000, {"gzip"}), "Content-Encoding: gzip\r\n"));
    request().setAcceptEncoding({.maxSize = 10'000});
    performPath();
    EXPECT_EQ(m_sink->m_size, 10'000);
}

TEST_F(CNetRequestEncodingTest, countsEachTransferByItself)
{
    answer(ok("12345")).readHead().send(ok("12345"));
    request().setAcceptEncoding({.maxSize = 5});
    performPath();
    performPath();
    EXPECT_EQ(m_sink->m_size, 10);
}

TEST_F(CNetRequestEncodingTest, countsNothingOfARedirect)
{
    answer("HTTP/1.1 302 There\r\nLocation: /there\r\nContent-Length: 5\r\n\r\n12345").readHead().send(ok("12345"));
    request().setAcceptEncoding({.maxSize = 5});
    performPath();
    EXPECT_EQ(m_sink->m_size, 5);
}

} // namespace
