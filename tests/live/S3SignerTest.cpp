// Signatures and ways to name a bucket, judged by a real store.
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/S3Session.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <functional>
#include <string>
#include <vector>

namespace {

using norla::CS3Client;
using norla::CS3Endpoint;
using Addressing = CS3Endpoint::Addressing;
using Signature = CS3Endpoint::Signature;

struct CWay {
    const char* name;
    Signature signature;
    Addressing addressing;
    bool useTLS;
};

void PrintTo(const CWay& way, std::ostream* stream)
{
    *stream << way.name;
}

class S3SignerTest : public live::S3Session, public testing::WithParamInterface<CWay> {
protected:
    S3SignerTest() { m_client = make(live::text(store().secretAccessKey())); }

    kx::P<CS3Client> make(const kx::String& secret, const kx::String& region = "us-east-1")
    {
        const CWay& way = GetParam();
        const std::string host = way.useTLS ? store().tlsHost() : store().host();
        const bool isVirtual = way.addressing == Addressing::VirtualHost;
        CS3Endpoint endpoint = CS3Endpoint::ceph(
            live::text(isVirtual ? "s3.localhost" + host.substr(host.find(':')) : host), way.useTLS);
        endpoint.addressing = way.addressing;
        endpoint.signature = way.signature;
        endpoint.region = region;
        const auto credentials = kx::newObj<norla::CS3StaticCredentials>(
            norla::CS3Credentials{.accessKeyId = live::text(store().accessKeyId()),
                .secretAccessKey = secret,
                .sessionToken = {},
                .expiry = {}});
        auto client = kx::newObj<CS3Client>(endpoint, credentials.get());
        client->setMaxRetries(0);
        client->setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        return client;
    }

    std::string fetch(const kx::String& key)
    {
        m_client->getObject(request(), m_bucket, key, 0, -1);
        return live::bodyOf(request());
    }

    void store1(const kx::String& key, const std::string& content)
    {
        m_client->putObject(
            request(), m_bucket, key, content.data(), static_cast<int>(content.size()), "text/plain; a=\"b  c\"");
    }

    /// What anybody gets who has the URL alone.
    std::string byURL(const kx::String& url, const std::function<void(norla::CNetRequest&)>& prepare = {})
    {
        const auto stranger = kx::newObj<norla::CNetRequest>();
        stranger->setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        stranger->setURL(url);
        if (prepare)
            prepare(*stranger);
        stranger->perform();
        return live::bodyOf(*stranger);
    }

    kx::P<CS3Client> m_client;
};

TEST_P(S3SignerTest, storesAndFetchesObjectsOfAnyName)
{
    const std::vector<kx::String> keys{"a", "a b+c", "a/b//c", "a%2Fb", "?x=1&y#z", ".", "..", "a/../b", "!*'();:@=$,~",
        kx::String::fromUTF8("\xC3\xA4\xF0\x9F\x98\x80"), "a\x01", kx::String(std::wstring(1024, L'n'))};
    for (const kx::String& key : keys) {
        store1(key, key.toUTF8());
        EXPECT_EQ(fetch(key), key.toUTF8());
    }
    m_client->setURLEncodedListings(true);
    EXPECT_EQ(m_client->listObjects(request(), m_bucket, "", "", "", -1)->getContents().size(), keys.size());
    for (const kx::String& key : keys) {
        m_client->deleteObject(request(), m_bucket, key);
        EXPECT_FALSE(m_client->objectExists(request(), m_bucket, key)) << key.toUTF8();
    }
}

TEST_P(S3SignerTest, copiesAndLists)
{
    store1("a b", "content");
    m_client->copyObject(request(), m_bucket, "a b", "c/d");
    EXPECT_EQ(fetch("c/d"), "content");
    const auto page = m_client->listObjects(request(), m_bucket, "c/", "/", "a b", 10);
    EXPECT_EQ(page->getContents().size(), 1U);
    EXPECT_EQ(m_client->getObjectSize(request(), m_bucket, "c/d"), 7);
}

TEST_P(S3SignerTest, storesWhatASourceGives)
{
    for (const bool sign : {false, true}) {
        m_client->setSignSources(sign);
        for (const size_t size : {0U, 1U, 262'144U, 600'000U}) {
            const std::string content(size, 'x');
            const auto bytes = kx::newObj<CS3Client::Buffer>();
            bytes->append(reinterpret_cast<const unsigned char*>(content.data()), size);
            const auto source
                = kx::newObj<norla::CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get());
            m_client->putObject(request(), m_bucket, "k", source.get(), static_cast<long long>(size), "", "");
            EXPECT_TRUE(fetch("k") == content);
            EXPECT_FALSE(request().getResponseHeaderMap().contains("content-encoding"));
        }
    }
}

TEST_P(S3SignerTest, isRefusedWithAnotherSecret)
{
    m_client = make("wrong");
    const auto error = support::errorOf([this] { fetch("a"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "SignatureDoesNotMatch");
}

TEST_P(S3SignerTest, lendsAnObjectByAURL)
{
    store1("a b/\x01+", "lent");
    EXPECT_EQ(
        byURL(m_client->presignObjectURL(request(), "GET", m_bucket, "a b/\x01+", kx::CTimeSpan::fromSeconds(60))),
        "lent");
}

TEST_P(S3SignerTest, takesAnObjectByAURL)
{
    byURL(m_client->presignObjectURL(request(), "PUT", m_bucket, "new", kx::CTimeSpan::fromSeconds(60)),
        [](norla::CNetRequest& stranger) {
            stranger.setHTTPMethod("PUT");
            stranger.setSendDataAsUTF8("brought");
            const auto headers = kx::newObj<norla::CNetHeaders>();
            headers->add("Content-Type", ""); // libcurl's own is not signed
            stranger.setCustomHTTPHeaders(headers.get());
        });
    EXPECT_EQ(fetch("new"), "brought");
}

TEST_P(S3SignerTest, lendsForNothingElse)
{
    store1("a", "1");
    const kx::String url = m_client->presignObjectURL(request(), "GET", m_bucket, "a", kx::CTimeSpan::fromSeconds(60));
    EXPECT_TRUE(
        support::errorOf([&] { byURL(url, [](norla::CNetRequest& stranger) { stranger.setHTTPMethod("DELETE"); }); }));
    EXPECT_EQ(fetch("a"), "1");
}

INSTANTIATE_TEST_SUITE_P(Ways, S3SignerTest,
    testing::Values(CWay{"V4", Signature::V4, Addressing::Path, false},
        CWay{"V4OverTLS", Signature::V4, Addressing::Path, true},
        CWay{"V4VirtualHost", Signature::V4, Addressing::VirtualHost, false},
        CWay{"V4VirtualHostOverTLS", Signature::V4, Addressing::VirtualHost, true},
        CWay{"V2", Signature::V2, Addressing::Path, false},
        CWay{"V2VirtualHost", Signature::V2, Addressing::VirtualHost, false},
        CWay{"V2VirtualHostOverTLS", Signature::V2, Addressing::VirtualHost, true}),
    [](const auto& tested) { return tested.param.name; });

class S3ClientWithAKeyTest : public live::S3Session {};

TEST_F(S3ClientWithAKeyTest, lendsAnObjectByAURL)
{
    put("k", "lent");
    const auto stranger = kx::newObj<norla::CNetRequest>();
    stranger->setURL(client().presignObjectURL(request(), "GET", m_bucket, "k", kx::CTimeSpan::fromSeconds(60)));
    stranger->perform();
    EXPECT_EQ(live::bodyOf(*stranger), "lent");
}

} // namespace
