// What is sent with an object, and what is made of the store's answer.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "tests/norla/s3/CS3ObjectsFixture.h"

namespace {

using norla::CS3Checksum;
using norla::CS3PutOptions;
using testing::HasSubstr;

/// Knows how often it was read from its start.
class CCountedSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CCountedSource(std::string bytes)
        : m_bytes(std::move(bytes))
    {
    }
    int read(unsigned char* buffer, int size, const HeaderMap& /*responseHeaders*/) override
    {
        const std::string part = m_bytes.substr(m_position, static_cast<size_t>(size));
        m_starts += m_position == 0 ? 1 : 0;
        std::copy(part.begin(), part.end(), buffer);
        m_position += part.size();
        return static_cast<int>(part.size());
    }
    long long getLength() override { return static_cast<long long>(m_bytes.size()); }
    void seek(long long position) override { m_position = static_cast<size_t>(position); }
    long long getPosition() override { return static_cast<long long>(m_position); }
    int getStarts() const { return m_starts; }
    void setBytes(const std::string& bytes) { m_bytes = bytes; }

private:
    std::string m_bytes;
    size_t m_position = 0;
    int m_starts = 0;
};

class CS3ObjectsPutTest : public CS3ObjectsFixture {
protected:
    void put(const CS3PutOptions& options) { objects().put("b", "k", "abc", options); }
    void expectSent(const CS3PutOptions& options, const std::vector<std::string>& lines)
    {
        answerBody(3, reply("200 OK", ""));
        put(options);
        for (const std::string& line : lines)
            EXPECT_TRUE(hasSent(line)) << line << " in " << received();
    }
    std::string messageOfAnswer(const std::string& headers, const CS3PutOptions& options = {})
    {
        answerBody(3, reply("200 OK", headers));
        return support::messageOf([&] { put(options); }).toUTF8();
    }
};

TEST_F(CS3ObjectsPutTest, sendsBytesWithTheirMD5AndKnowsTheirVersion)
{
    answerBody(3,
        reply("200 OK",
            "ETag: \"900150983CD24FB0d6963f7d28e17f72\"\r\nx-amz-version-id: v1\r\nContent-Type: "
            "text/html\r\nx-amz-server-side-encryption: AES256\r\n"));
    const auto info = objects().put("b", "a/k", "abc");
    EXPECT_EQ(requestLine(), "PUT /b/a%2Fk HTTP/1.1");
    EXPECT_EQ(sentBody(), "abc");
    EXPECT_TRUE(hasSent("content-md5: kAFQmDzST7DWlj99KOF/cg=="));
    EXPECT_TRUE(hasSent("x-amz-content-sha256: ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    EXPECT_EQ(info.eTag, "\"900150983CD24FB0d6963f7d28e17f72\"");
    EXPECT_EQ(info.versionId, "v1");
    EXPECT_EQ(info.encryption, "AES256");
    EXPECT_EQ(info.size, 3);
    EXPECT_EQ(info.contentType, "");
}

TEST_F(CS3ObjectsPutTest, sendsContentHeadersAndMetadata)
{
    expectSent({.contentType = "text/plain",
                   .cacheControl = "no-cache",
                   .contentDisposition = "attachment; filename=\"a\"",
                   .contentEncoding = "gzip",
                   .contentLanguage = "de",
                   .expires = kx::CTime(1255369830LL * 1'000'000),
                   .metadata = {{"Author", L"Zo\xEB"}, {"empty", ""}}},
        {"Content-Type: text/plain", "Cache-Control: no-cache", "Content-Disposition: attachment; filename=\"a\"",
            "Content-Encoding: gzip", "Content-Language: de", "Expires: Mon, 12 Oct 2009 17:50:30 GMT",
            "x-amz-meta-author: =?UTF-8?B?Wm/Dqw==?=", "x-amz-meta-empty:"});
    EXPECT_THAT(received(), HasSubstr(";x-amz-meta-author;x-amz-meta-empty,"));
}

TEST_F(CS3ObjectsPutTest, sendsHowTheObjectIsKept)
{
    expectSent({.storageClass = "STANDARD_IA",
                   .cannedACL = "public-read",
                   .encryption = {.algorithm = "aws:kms", .keyId = "key"},
                   .tags = {{"a b", "c&d=e/"}, {"f", ""}},
                   .ifMatch = "\"e\"",
                   .ifNoneMatch = "*",
                   .headers = {{"x-amz-request-payer", "requester"}}},
        {"x-amz-storage-class: STANDARD_IA", "x-amz-acl: public-read", "x-amz-server-side-encryption: aws:kms",
            "x-amz-server-side-encryption-aws-kms-key-id: key", "x-amz-tagging: a%20b=c%26d%3De%2F&f=",
            "If-Match: \"e\"", "If-None-Match: *", "x-amz-request-payer: requester"});
}

TEST_F(CS3ObjectsPutTest, sendsTheChecksumThatIsWanted)
{
    expectSent(
        {.checksum = CS3Checksum::SHA256}, {"x-amz-checksum-sha256: ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="});
    EXPECT_EQ(received().find("content-md5"), std::string::npos);
}

TEST_F(CS3ObjectsPutTest, sendsACRC32CWithItsHighByteFirst)
{
    expectSent({.checksum = CS3Checksum::CRC32C}, {"x-amz-checksum-crc32c: Nks/tw=="});
}

TEST_F(CS3ObjectsPutTest, readsASourceOnceMoreForAChecksumAlone)
{
    for (const auto& [checksum, starts] : {std::pair(CS3Checksum::None, 1), std::pair(CS3Checksum::SHA256, 2)}) {
        const int sent = checksum == CS3Checksum::None ? 175 : 3; // with the signature of each chunk
        answerBody(sent, reply("200 OK", "ETag: \"900150983cd24fb0d6963f7d28e17f72\"\r\n"));
        const auto source = kx::newObj<CCountedSource>("abcd"); // has more than is sent
        EXPECT_EQ(objects().put("b", "k", source.get(), 3, {.checksum = checksum}).size, 3);
        EXPECT_EQ(source->getStarts(), starts);
    }
    server().join();
    EXPECT_THAT(server().received(0), HasSubstr("x-amz-content-sha256: STREAMING-AWS4-HMAC-SHA256-PAYLOAD\r\n"));
    EXPECT_THAT(server().received(1),
        HasSubstr("x-amz-content-sha256: ba7816bf8f01cfea414140de5dae2223b00361a396177a9c"
                  "b410ff61f20015ad\r\n")); // known anyway
}

TEST_F(CS3ObjectsPutTest, sendsNothingOfASourceThatEndsBeforeItsChecksumIsMade)
{
    const auto source = kx::newObj<CCountedSource>("ab");
    EXPECT_EQ(support::messageOf([&] { objects().put("b", "k", source.get(), 3, {.checksum = CS3Checksum::MD5}); }),
        "The data to be sent have ended 1 bytes before their size of 3.");
}

/// Is another one when it begins anew.
class CChangingSource : public CCountedSource {
public:
    CChangingSource()
        : CCountedSource("xbc")
    {
    }
    void seek(long long position) override
    {
        if (getStarts() > 0)
            setBytes("abc");
        CCountedSource::seek(position);
    }
};

TEST_F(CS3ObjectsPutTest, comparesWhatWasSentLast)
{
    answerBody(3, reply("503 Busy", ""));
    answerBody(3, reply("200 OK", "ETag: \"900150983cd24fb0d6963f7d28e17f72\"\r\n"));
    objectClient().setMaxRetries(1);
    objectClient().setSignSources(false);
    objects().put("b", "k", kx::newObj<CChangingSource>().get(), 3);
    server().join();
    EXPECT_THAT(server().received(0), testing::EndsWith("\r\n\r\nxbc"));
    EXPECT_THAT(server().received(1), testing::EndsWith("\r\n\r\nabc"));
}

TEST_F(CS3ObjectsPutTest, takesAnAnswerBeforeTheBodyForNoSuccess)
{
    const std::string bytes(2 << 20, 'x');
    server().onConnection().readHead().send(reply("200 OK", "ETag: \"0123456789abcdef0123456789abcdef\"\r\n"));
    EXPECT_EQ(support::messageOf([&] { objects().put("b", "k", bytes); }).toUTF8(),
        "The store has answered when 0 of the 2097152 bytes of the object 'k' in the bucket 'b' were sent.");
}

TEST_F(CS3ObjectsPutTest, namesBothWhereTheStoreHasGotOtherBytes)
{
    EXPECT_EQ(messageOfAnswer("ETag: \"000150983cd24fb0d6963f7d28e17f72\"\r\n"),
        "The bytes of the object 'k' in the bucket 'b' are not those that the store speaks of: their MD5 is "
        "'900150983cd24fb0d6963f7d28e17f72' and not '000150983cd24fb0d6963f7d28e17f72'.");
}

TEST_F(CS3ObjectsPutTest, namesBothWhereTheStoreHasAnotherChecksum)
{
    EXPECT_EQ(messageOfAnswer("x-amz-checksum-crc32c: AAAAAA==\r\n", {.checksum = CS3Checksum::CRC32C}),
        "The bytes of the object 'k' in the bucket 'b' are not those that the store speaks of: 'x-amz-checksum-crc32c' "
        "is 'Nks/tw==' and not 'AAAAAA=='.");
}

TEST_F(CS3ObjectsPutTest, takesNoETagForADigestThatIsNone)
{
    const std::string eTag = "ETag: \"000150983cd24fb0d6963f7d28e17f72\"\r\n";
    EXPECT_EQ(messageOfAnswer("ETag: \"000150983cd24fb0d6963f7d28e17f72-1\"\r\n"), "(no error)");
    EXPECT_EQ(messageOfAnswer(eTag + "x-amz-server-side-encryption: aws:kms\r\n"), "(no error)");
    EXPECT_EQ(messageOfAnswer(eTag + "x-amz-server-side-encryption-customer-algorithm: AES256\r\n"), "(no error)");
    EXPECT_EQ(messageOfAnswer(eTag, {.encryption = {.algorithm = "aws:kms"}}), "(no error)");
    EXPECT_EQ(messageOfAnswer(eTag, {.verify = false}), "(no error)");
}

TEST_F(CS3ObjectsPutTest, takesAFailureBehindASuccessForWhatItIs)
{
    answerBody(3, reply("200 OK", "", errorDocument("InternalError")));
    const auto error = support::errorOf([&] { put({}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
}

TEST_F(CS3ObjectsPutTest, isGoodForMoreBehindAFailure)
{
    answerBody(3, answerWith(412, errorDocument("PreconditionFailed")));
    const auto error = support::errorOf([&] { put({.ifNoneMatch = "*"}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "PreconditionFailed");
    EXPECT_EQ(messageOfAnswer(""), "(no error)");
}

TEST_F(CS3ObjectsPutTest, refusesWhatIsNoHeader)
{
    EXPECT_THROW(put({.contentType = "a\r\nb: c"}), kx::CInvalidArgError);
    EXPECT_THROW(put({.cacheControl = kx::String(std::wstring(1, L'\0'))}), kx::CInvalidArgError);
    EXPECT_THROW(put({.metadata = {{"a", "\n"}}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.metadata = {{"a b", "c"}}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.metadata = {{"", "c"}}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.metadata = {{"a:", "c"}}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.metadata = {{"A", "1"}, {"a", "2"}}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.headers = {{"a", "b\nc"}}}), kx::CInvalidArgError);
}

TEST_F(CS3ObjectsPutTest, saysWhatIsWrongWithANameOfMetadata)
{
    const auto messageOfPut
        = [this](const CS3PutOptions& options) { return support::messageOf([&] { put(options); }).toUTF8(); };
    EXPECT_THAT(messageOfPut({.metadata = {{"a b", "c"}}}), HasSubstr("'a b' of metadata cannot be that of a header"));
    EXPECT_THAT(messageOfPut({.metadata = {{"A", "1"}, {"a", "2"}}}), HasSubstr("'a' of metadata is there twice"));
}

TEST_F(CS3ObjectsPutTest, refusesWhatMakesNoSense)
{
    EXPECT_THROW(put({.encryption = {.algorithm = {}, .keyId = {}, .customerKey = "short"}}), kx::CInvalidArgError);
    EXPECT_THROW(put({.encryption = {.algorithm = "AES256", .keyId = {}, .customerKey = std::string(32, 'k')}}),
        kx::CInvalidArgError);
    EXPECT_THROW(objects().put("", "k", "abc"), kx::CInvalidArgError);
    EXPECT_THROW(objects().put("b", "", "abc"), kx::CInvalidArgError);
    EXPECT_THROW(objects().put("b", "k", nullptr, 3), kx::CInvalidArgError);
    const auto source = kx::newObj<CCountedSource>("abc");
    EXPECT_THROW(objects().put("b", "k", source.get(), -1), kx::CInvalidArgError);
}

} // namespace
