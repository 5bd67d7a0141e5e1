// The S3 client against a store that checks its signatures.
#include "kx/containers/TArray.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ObjectEnum.h"
#include "tests/live/S3Session.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CCephServer.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <utility>

namespace {

using norla::CS3Client;
using norla::CS3Error;
using norla::CS3ObjectEnum;

class S3Test : public live::S3Session {};

TEST_F(S3Test, givesBackWhatWasStored)
{
    put("greeting", "hello");
    EXPECT_EQ(get("greeting"), "hello");
}

TEST_F(S3Test, replacesAnObject)
{
    put("k", "first");
    put("k", "second");
    EXPECT_EQ(get("k"), "second");
}

TEST_F(S3Test, givesBackRanges)
{
    put("digits", "0123456789");
    EXPECT_EQ(get("digits", 3, 4), "3456");
    EXPECT_EQ(get("digits", 0, 1), "0");
    EXPECT_EQ(get("digits", 7, -1), "789");
    EXPECT_EQ(get("digits", 7, 100), "789");
    EXPECT_EQ(get("digits", 3, 0), "");
}

TEST_F(S3Test, refusesARangeBehindTheEnd)
{
    put("digits", "0123456789");
    const auto error = support::errorOf([this] { get("digits", 10, 5); });
    ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
    EXPECT_EQ(error->getCode(), 416);
    EXPECT_EQ(error->getProps().get("s3-code"), "InvalidRange");
}

TEST_F(S3Test, keepsEmptyObjects)
{
    put("empty", "");
    EXPECT_EQ(get("empty"), "");
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, "empty"), 0);
}

TEST_F(S3Test, keepsObjectsOfOneByte)
{
    put("one", std::string(1, '\0'));
    EXPECT_EQ(get("one"), std::string(1, '\0'));
}

TEST_F(S3Test, keepsObjectsOf100MB)
{
    std::string content(100'000'000, '\0');
    std::independent_bits_engine<std::mt19937_64, 64, unsigned long long> random(1);
    for (size_t at = 0; at < content.size(); at += 8) {
        const unsigned long long bits = random();
        std::copy_n(reinterpret_cast<const char*>(&bits), 8, content.begin() + static_cast<std::ptrdiff_t>(at));
    }
    put("large", content);
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, "large"), 100'000'000);
    EXPECT_TRUE(get("large") == content);
    EXPECT_TRUE(get("large", 99'999'990, -1) == content.substr(99'999'990));
}

TEST_F(S3Test, tellsTheHeaders)
{
    put("page", "<p>", "text/html");
    const auto headers = client().getObjectHeaders(request(), m_bucket, "page");
    EXPECT_EQ(headers.at("content-type"), "text/html");
    EXPECT_EQ(headers.at("content-length"), "3");
    EXPECT_TRUE(headers.contains("last-modified"));
}

TEST_F(S3Test, tellsWhetherAnObjectExists)
{
    put("here", "x");
    EXPECT_TRUE(client().objectExists(request(), m_bucket, "here"));
    EXPECT_FALSE(client().objectExists(request(), m_bucket, "there"));
    EXPECT_FALSE(client().objectExists(request(), "no-such-bucket", "here"));
}

TEST_F(S3Test, tellsTheSizeOfAnObject)
{
    put("here", "12345");
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, "here"), 5);
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, "there"), -1);
}

TEST_F(S3Test, copiesAnObject)
{
    put("a/old one", "content", "text/plain");
    client().copyObject(request(), m_bucket, "a/old one", L"b/n\u00e4w");
    EXPECT_EQ(get(L"b/n\u00e4w"), "content");
    EXPECT_EQ(get("a/old one"), "content");
    EXPECT_EQ(client().getObjectHeaders(request(), m_bucket, L"b/n\u00e4w").at("content-type"), "text/plain");
}

TEST_F(S3Test, doesNotCopyAMissingObject)
{
    const auto error = support::errorOf([this] { client().copyObject(request(), m_bucket, "missing", "new"); });
    ASSERT_TRUE(dynamic_cast<const norla::CCURLError*>(error.get()));
    EXPECT_EQ(error->getProps().get("responseCode"), "404");
    EXPECT_FALSE(client().objectExists(request(), m_bucket, "new"));
}

TEST_F(S3Test, deletesAnObject)
{
    put("k", "x");
    client().deleteObject(request(), m_bucket, "k");
    EXPECT_FALSE(client().objectExists(request(), m_bucket, "k"));
}

TEST_F(S3Test, deletesAMissingObjectToo)
{
    EXPECT_NO_THROW(client().deleteObject(request(), m_bucket, "missing"));
}

class S3KeyTest : public S3Test, public testing::WithParamInterface<kx::String> {};

TEST_P(S3KeyTest, namesAnObjectForEveryOperation)
{
    const kx::String key = GetParam();
    put(key, "content");
    EXPECT_EQ(get(key), "content");
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, key), 7);
    EXPECT_EQ(keysOf(""), Keys{key});
    EXPECT_EQ(keysOf(key), Keys{key});
    EXPECT_EQ(keysOf("", "", key), Keys());
    client().copyObject(request(), m_bucket, key, "copy");
    EXPECT_EQ(get("copy"), "content");
    client().copyObject(request(), m_bucket, "copy", key);
    client().deleteObject(request(), m_bucket, key);
    EXPECT_FALSE(client().objectExists(request(), m_bucket, key));
}

INSTANTIATE_TEST_SUITE_P(Keys, S3KeyTest,
    testing::ValuesIn(kx::TArray<kx::String>{"plain", "photos/2026/a.jpg", "a b", " ", "  both  ", "a+b", "100%", "%41",
        "~", "a&b=c?d#e", "<&>\"'", L"gr\u00fc\u00dfe", L"\u6f22\u5b57", L"\U0001f600", "a/../b", "/", "//",
        "back\\slash", kx::String(std::wstring(1024, L'x')), kx::String(std::wstring(512, L'\u00e4'))}));

TEST_F(S3Test, listsByPrefixDelimiterMarkerAndCount)
{
    for (const char* const key : {"a", "b/1", "b/2", "b/c/3", "d"})
        put(kx::String::fromLatin1(key), "x");
    EXPECT_EQ(keysOf(""), (Keys{"a", "b/1", "b/2", "b/c/3", "d"}));
    EXPECT_EQ(keysOf("b/"), (Keys{"b/1", "b/2", "b/c/3"}));
    EXPECT_EQ(keysOf("b/", "/"), (Keys{"b/1", "b/2"}));
    EXPECT_EQ(keysOf("", "", "b/2"), (Keys{"b/c/3", "d"}));
    EXPECT_EQ(keysOf("", "", "", 2), (Keys{"a", "b/1"}));
    const auto page = client().listObjects(request(), m_bucket, "", "/", "", -1);
    EXPECT_EQ(page->getCommonPrefixes(), kx::TArray<kx::String>{"b/"});
    EXPECT_EQ(page->getContents().size(), 2u);
    EXPECT_FALSE(page->isTruncated());
}

TEST_F(S3Test, saysWhatItKnowsAboutAListedObject)
{
    put("k", "hello");
    const auto object = client().listObjects(request(), m_bucket, "", "", "", -1)->getContents().at(0);
    EXPECT_EQ(object->getSize(), 5);
    EXPECT_EQ(object->getETag(), "\"5d41402abc4b2a76b9719d911017c592\"");
    EXPECT_TRUE(object->getLastModified().endsWith("Z")) << object->getLastModified();
}

TEST_F(S3Test, saysWhenAListingGoesOn)
{
    put("a", "x");
    put("b", "x");
    const auto page = client().listObjects(request(), m_bucket, "", "", "", 1);
    EXPECT_TRUE(page->isTruncated());
    EXPECT_FALSE(client().listObjects(request(), m_bucket, "", "", "a", 1)->isTruncated());
}

TEST_F(S3Test, enumeratesOverSeveralPages)
{
    Keys expected;
    for (int i = 10; i < 35; ++i) {
        expected.push_back("object " + kx::toString(i));
        put(expected.back(), "x");
    }
    put("other", "x");
    for (const int maxKeys : {1, 7, 25, -1}) {
        CS3ObjectEnum objects(&client(), &request(), m_bucket, "object", "", maxKeys);
        Keys found;
        while (objects.next())
            found.push_back(objects.getCurrObject()->getKey());
        EXPECT_EQ(found, expected) << maxKeys;
    }
}

TEST_F(S3Test, enumeratesBehindAStart)
{
    put("a", "x");
    put("b", "x");
    CS3ObjectEnum objects(&client(), &request(), m_bucket, "", "a", 1);
    ASSERT_TRUE(objects.next());
    EXPECT_EQ(objects.getCurrObject()->getKey(), "b");
    EXPECT_FALSE(objects.next());
}

TEST_F(S3Test, enumeratesNothingInAnEmptyBucket)
{
    CS3ObjectEnum objects(&client(), &request(), m_bucket, "", "", -1);
    EXPECT_FALSE(objects.next());
}

TEST_F(S3Test, performsWhatItsCallerPrepared)
{
    put("k", "content");
    client().prepareGetObjectRequest(request(), m_bucket, "k", 0, -1);
    request().perform();
    EXPECT_EQ(live::bodyOf(request()), "content");
}

TEST_F(S3Test, signsWhatItsCallerAdds)
{
    const auto url = client().getObjectURL(request(), m_bucket, "k");
    const auto headers = client().beginPrepareRequest(request(), url);
    headers->add("X-Amz-Meta-Color", "red");
    headers->add("x-amz-meta-border", "green");
    request().setHTTPMethod("PUT");
    request().setSendDataSize(0);
    client().finishPrepareRequest(request());
    client().performRequest(request());
    const auto stored = client().getObjectHeaders(request(), m_bucket, "k");
    EXPECT_EQ(stored.at("x-amz-meta-color"), "red");
    EXPECT_EQ(stored.at("x-amz-meta-border"), "green");
}

TEST_F(S3Test, signsASubResource)
{
    client().beginPrepareRequest(
        request(), "http://" + kx::String::fromLatin1(store().host()) + "/" + m_bucket + "?acl");
    client().finishPrepareRequest(request());
    client().performRequest(request());
    EXPECT_NE(live::bodyOf(request()).find("<AccessControlPolicy"), std::string::npos);
}

TEST_F(S3Test, worksOverTLS)
{
    const auto client = kx::newObj<CS3Client>(kx::String::fromLatin1(store().accessKeyId()),
        kx::String::fromLatin1(store().secretAccessKey()), true, kx::String::fromLatin1(store().tlsHost()));
    client->setRootCertBundlePath(
        norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
    client->putObject(request(), m_bucket, "k", "hello", 5, "");
    EXPECT_EQ(get("k"), "hello");
}

TEST_F(S3Test, refusesAStoreThatItCannotVerify)
{
    const auto client = kx::newObj<CS3Client>(kx::String::fromLatin1(store().accessKeyId()),
        kx::String::fromLatin1(store().secretAccessKey()), true, kx::String::fromLatin1(store().tlsHost()));
    const auto error = support::errorOf([&] { client->getObject(request(), m_bucket, "k", 0, -1); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    client->setSSLVerifyPeer(false);
    EXPECT_FALSE(client->objectExists(request(), m_bucket, "k"));
}

class S3FailureTest : public S3Test {
protected:
    /// The error, after showing that it holds and logs nothing secret.
    kx::P<kx::CError> failure(CS3Client& client, const kx::String& bucketName, const char* secret)
    {
        const support::CLogRecorder log;
        const auto error = support::errorOf([&] { client.getObject(request(), bucketName, "missing key", 0, -1); });
        std::string everything = error ? error->what() : "";
        for (const std::string& line : log.lines())
            everything += line;
        for (const auto& [key, value] : error ? error->getProps().getMap() : kx::TMap<kx::String, kx::String>())
            everything += value.toUTF8();
        EXPECT_EQ(everything.find(secret), std::string::npos);
        return error;
    }

    static void expectS3Error(const kx::P<kx::CError>& error, int status, const kx::String& code)
    {
        ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
        EXPECT_EQ(error->getDomain(), "http");
        EXPECT_EQ(error->getCode(), status);
        EXPECT_EQ(error->getProps().get("responseCode"), kx::toString(status));
        EXPECT_EQ(error->getProps().get("s3-code"), code);
        EXPECT_FALSE(error->getProps().get("s3-requestID").isEmpty());
        EXPECT_TRUE(error->getMessage().startsWith("Amazon S3 error: ")) << error->what();
        EXPECT_TRUE(error->getMessage().endsWith("(" + code + ")")) << error->what();
    }
};

TEST_F(S3FailureTest, isAMissingKey)
{
    const auto error = failure(client(), m_bucket, store().secretAccessKey().c_str());
    expectS3Error(error, 404, "NoSuchKey");
    EXPECT_TRUE(client().isNotFoundError(*error));
}

TEST_F(S3FailureTest, isAMissingBucket)
{
    const auto error = failure(client(), "no-such-bucket", store().secretAccessKey().c_str());
    expectS3Error(error, 404, "NoSuchBucket");
    EXPECT_TRUE(client().isNotFoundError(*error));
}

TEST_F(S3FailureTest, isAWrongSecret)
{
    const auto wrong = kx::newObj<CS3Client>(
        kx::String::fromLatin1(store().accessKeyId()), "wrong/secret", false, kx::String::fromLatin1(store().host()));
    expectS3Error(failure(*wrong, m_bucket, "wrong/secret"), 403, "SignatureDoesNotMatch");
}

TEST_F(S3FailureTest, isAnUnknownUser)
{
    const auto unknown = kx::newObj<CS3Client>("NOBODY", "some/secret", false, kx::String::fromLatin1(store().host()));
    expectS3Error(failure(*unknown, m_bucket, "some/secret"), 403, "InvalidAccessKeyId");
}

TEST_F(S3FailureTest, isSomebodyElsesBucket)
{
    const auto other = kx::newObj<CS3Client>(kx::String::fromLatin1(store().otherAccessKeyId()),
        kx::String::fromLatin1(store().otherSecretAccessKey()), false, kx::String::fromLatin1(store().host()));
    expectS3Error(failure(*other, m_bucket, store().otherSecretAccessKey().c_str()), 403, "AccessDenied");
}

TEST_F(S3FailureTest, leavesTheRequestUsable)
{
    failure(client(), "no-such-bucket", store().secretAccessKey().c_str());
    put("k", "hello");
    EXPECT_EQ(get("k"), "hello");
}

/// Gives a text and, when half of it is read, does something.
class CInterruptedSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    CInterruptedSource(std::string text, std::function<void()> interruption)
        : m_text(std::move(text))
        , m_interruption(std::move(interruption))
    {
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap&) override
    {
        if (m_position > m_text.size() / 2 && m_interruption)
            std::exchange(m_interruption, nullptr)();
        const size_t count = std::min(static_cast<size_t>(size), m_text.size() - m_position);
        std::copy_n(m_text.data() + m_position, count, buffer);
        m_position += count;
        return static_cast<int>(count);
    }
    long long getLength() override { return static_cast<long long>(m_text.size()); }
    void seek(long long position) override { m_position = static_cast<size_t>(position); }
    long long getPosition() override { return static_cast<long long>(m_position); }
    bool wasInterrupted() const { return !m_interruption; }

private:
    const std::string m_text;
    std::function<void()> m_interruption;
    size_t m_position = 0;
};

class S3LossTest : public testing::Test {
protected:
    S3LossTest() { m_store.makeBucket("safe"); }

    static kx::String keyOf(int i) { return "object " + kx::toString(100 + i); }
    static std::string contentOf(int i) { return std::string(10'000, static_cast<char>('a' + i % 26)); }

    std::string get(const kx::String& key)
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        m_client->getObject(*request, "safe", key, 0, -1);
        return live::bodyOf(*request);
    }

    support::CCephServer m_store{{.storageDaemons = 3}};
    const kx::P<CS3Client> m_client = live::clientFor(m_store);
};

TEST_F(S3LossTest, isNothingWhenAStorageDaemonDiesDuringAnUploadAndAnEnumeration)
{
    constexpr int count = 30;
    const auto request = kx::newObj<norla::CNetRequest>();
    for (int i = 0; i < count; ++i) {
        const std::string content = contentOf(i);
        m_client->putObject(*request, "safe", keyOf(i), content.data(), static_cast<int>(content.size()), "");
    }
    CS3ObjectEnum objects(m_client.get(), request.get(), "safe", "object", "", 4);
    std::vector<kx::String> found;
    const auto walk = [&](size_t steps) {
        while (found.size() < steps && objects.next())
            found.push_back(objects.getCurrObject()->getKey());
    };
    walk(count / 2);

    const std::string large(20'000'000, 'z');
    const auto upload = kx::newObj<norla::CNetRequest>();
    m_client->preparePutObjectRequest(*upload, "safe", "large", large.data(), static_cast<int>(large.size()), "");
    const auto source = kx::newObj<CInterruptedSource>(large, [this] { m_store.killStorageDaemon(0); });
    upload->setSendDataSource(source.get());
    m_client->performRequest(*upload);
    EXPECT_TRUE(source->wasInterrupted());

    walk(count + 1);
    ASSERT_EQ(found.size(), size_t{count});
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(found[static_cast<size_t>(i)], keyOf(i));
        EXPECT_TRUE(get(keyOf(i)) == contentOf(i)) << i;
    }
    EXPECT_TRUE(get("large") == large);
}

} // namespace
