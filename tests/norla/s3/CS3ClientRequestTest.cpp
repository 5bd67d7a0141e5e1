#include "kx/base/CInvalidArgError.h"
#include "kx/containers/TArray.h"
#include "kx/streams/CBufferStream.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace {

using norla::CNetRequest;
using norla::CS3Client;

class CS3ClientRequestTest : public CS3ClientFixture {
protected:
    /// The URL behind the host.
    kx::String path()
    {
        const kx::String start = "http://" + host();
        EXPECT_TRUE(request().getURL().startsWith(start));
        return request().getURL().substr(start.size());
    }

    void put(std::string_view bytes, const kx::String& type = "")
    {
        client().preparePutObjectRequest(request(), "b", "k", bytes.data(), static_cast<int>(bytes.size()), type);
    }

    kx::String rangeOf(long long start, long long length)
    {
        client().prepareGetObjectRequest(request(), "b", "k", start, length);
        return sentHeader("Range");
    }

    kx::String listPath(const kx::String& prefix, const kx::String& delimiter, const kx::String& marker, int maxKeys)
    {
        client().prepareListObjectsRequest(request(), "b", prefix, delimiter, marker, maxKeys);
        return path();
    }

    /// Whether preparing for the URL sets the option.
    bool isSetFor(const kx::String& url, const char* option, CS3Client& client)
    {
        support::CCurlCalls calls;
        client.beginPrepareRequest(request(), url);
        const auto options = calls.takeOptions();
        return std::find(options.begin(), options.end(), option) != options.end();
    }
    bool isSetFor(const kx::String& url, const char* option) { return isSetFor(url, option, client()); }

    void expectSigned()
    {
        EXPECT_TRUE(sentHeader("Authorization").startsWith("AWS AKID:"));
        EXPECT_EQ(sentHeader("Date").size(), 29u); // "Sun, 06 Nov 1994 08:49:37 GMT"
        EXPECT_TRUE(sentHeader("Date").endsWith(" GMT"));
    }
};

TEST_F(CS3ClientRequestTest, goesToAmazonUnlessToldOtherwise)
{
    CS3Client(kx::String("id"), "secret", true).prepareListObjectsRequest(request(), "b", "", "", "", -1);
    EXPECT_EQ(request().getURL(), "https://s3.amazonaws.com/b");
    CS3Client(kx::String("id"), "secret", false).prepareListObjectsRequest(request(), "b", "", "", "", -1);
    EXPECT_EQ(request().getURL(), "http://s3.amazonaws.com/b");
}

TEST_F(CS3ClientRequestTest, goesToTheGivenHost)
{
    CS3Client(kx::String("id"), "secret", true, "store.example:8443")
        .prepareListObjectsRequest(request(), "b", "", "", "", -1);
    EXPECT_EQ(request().getURL(), "https://store.example:8443/b");
}

TEST_F(CS3ClientRequestTest, refusesAHostThatIsMoreThanAHost)
{
    for (const kx::String& host :
        kx::TArray<kx::String>{"", "http://host", "host/", "a host", "host?x", "host#x", "host\rx", "host\n"})
        EXPECT_EQ(support::messageOf([&host] { CS3Client("id", "secret", true, host); }),
            "Invalid argument passed to 'CS3Client::CS3Client': endpoint host must be a host name with or without a "
            "port, not '"
                + host + "'.");
}

TEST_F(CS3ClientRequestTest, doesNotShowAPasswordThatStandsBeforeTheHost)
{
    EXPECT_EQ(support::messageOf([] { CS3Client("id", "secret", true, "user:password@host"); }),
        "Invalid argument passed to 'CS3Client::CS3Client': endpoint host must be a host name with or without a port, "
        "not "
        "'***@host'.");
}

TEST_F(CS3ClientRequestTest, escapesTheBucketOfAListing)
{
    client().prepareListObjectsRequest(request(), "my b", "", "", "", -1);
    EXPECT_EQ(path(), "/my%20b");
}

TEST_F(CS3ClientRequestTest, escapesNamesAsAWhole)
{
    EXPECT_EQ(client().getObjectURL(request(), "my bucket", L"a/b +~%\u00e4"),
        "http://" + host() + "/my%20bucket/a%2Fb%20%2B~%25%C3%A4");
}

TEST_F(CS3ClientRequestTest, beginsWithEverythingButTheSignature)
{
    support::CCurlCalls calls;
    const auto headers = client().beginPrepareRequest(request(), "http://host/x");
    EXPECT_EQ(request().getCustomHTTPHeaders(), headers);
    EXPECT_EQ(request().getURL(), "http://host/x");
    EXPECT_NE(sentHeader("Date"), "(missing)");
    EXPECT_EQ(sentHeader("Authorization"), "(missing)");
    auto options = calls.takeOptions();
    options.erase(options.begin(), std::find(options.begin(), options.end(), "URL=http://host/x"));
    EXPECT_EQ(options,
        (std::vector<std::string>{"URL=http://host/x", "FOLLOWLOCATION=1", "POSTREDIR=7", "VERBOSE=0",
            "SSL_VERIFYPEER=1", "HTTPHEADER=[Date: " + sentHeader("Date").toUTF8() + "]"}));
}

TEST_F(CS3ClientRequestTest, sendsHeadersThatAreAddedToWhatItBegan)
{
    client().beginPrepareRequest(request(), "http://host/x")->add("X-Later", "1");
    EXPECT_EQ(sentHeader("X-Later"), "1");
}

TEST_F(CS3ClientRequestTest, hasTheTimeOfNow)
{
    const kx::String before = kx::CTimeFields(kx::CTime::now()).toInternetTimestamp();
    client().beginPrepareRequest(request(), "http://host/x");
    const kx::String after = kx::CTimeFields(kx::CTime::now()).toInternetTimestamp();
    EXPECT_TRUE(sentHeader("Date") == before || sentHeader("Date") == after) << sentHeader("Date");
}

TEST_F(CS3ClientRequestTest, passesItsSettingsOn)
{
    support::CCurlCalls calls;
    client().setPrintDebugInfo(true);
    client().setSSLVerifyPeer(false);
    client().beginPrepareRequest(request(), "http://host/x");
    const auto options = calls.takeOptions();
    EXPECT_NE(std::find(options.begin(), options.end(), "VERBOSE=1"), options.end());
    EXPECT_NE(std::find(options.begin(), options.end(), "SSL_VERIFYPEER=0"), options.end());
}

TEST_F(CS3ClientRequestTest, setsItsSafeDefaultsBeforeAnythingElse)
{
    support::CCurlCalls calls;
    client().setSafeDefaults({.maxRedirects = 3});
    client().beginPrepareRequest(request(), "http://host/x");
    const auto options = calls.takeOptions();
    const auto limit = std::find(options.begin(), options.end(), "MAXREDIRS=3");
    ASSERT_NE(limit, options.end());
    EXPECT_NE(std::find(limit, options.end(), "URL=http://host/x"), options.end());
}

TEST_F(CS3ClientRequestTest, limitsEachRequestAsItWasTold)
{
    support::CCurlCalls calls;
    client().setDeadlines({.inactivity = kx::CTimeSpan::fromSeconds(2)});
    client().beginPrepareRequest(request(), "http://host/x");
    const auto options = calls.takeOptions();
    EXPECT_NE(std::find(options.begin(), options.end(), "LOW_SPEED_TIME=2"), options.end());
}

TEST_F(CS3ClientRequestTest, refusesToPrepareWithNegativeLimits)
{
    client().setDeadlines({.total = kx::CTimeSpan::fromSeconds(-1)});
    EXPECT_EQ(support::messageOf([&] { client().beginPrepareRequest(request(), "http://host/x"); }),
        "Invalid argument passed to 'CNetRequest::setDeadlines': the deadline 'total' is negative.");
}

TEST_F(CS3ClientRequestTest, replacesWhateverTheRequestWas)
{
    put("old", "text/plain");
    client().prepareGetObjectRequest(request(), "b", "k", 0, -1);
    EXPECT_EQ(request().getHTTPMethod(), "GET");
    EXPECT_EQ(sentHeader("Content-MD5"), "(missing)");
    EXPECT_EQ(sentHeader("Content-Type"), "(missing)");
}

TEST_F(CS3ClientRequestTest, putsAnObject)
{
    put("hello", "text/plain");
    EXPECT_EQ(path(), "/b/k");
    EXPECT_EQ(request().getHTTPMethod(), "PUT");
    EXPECT_EQ(sentHeader("Content-MD5"), "XUFAKrxLKna5cZ2REBfFkg==");
    EXPECT_EQ(sentHeader("Content-Type"), "text/plain");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, putsAnObjectOfNoType)
{
    put("hello");
    EXPECT_EQ(sentHeader("Content-Type"), "(missing)");
}

TEST_F(CS3ClientRequestTest, putsAnEmptyObjectWithItsDigest)
{
    put("");
    EXPECT_EQ(sentHeader("Content-MD5"), "1B2M2Y8AsgTpgAmY7PhCfg==");
}

TEST_F(CS3ClientRequestTest, startsADigestAnewForEveryObject)
{
    put("something");
    put("hello");
    EXPECT_EQ(sentHeader("Content-MD5"), "XUFAKrxLKna5cZ2REBfFkg==");
}

TEST_F(CS3ClientRequestTest, signsTheHeadersOfAPut)
{
    put("hello", "text/plain");
    const kx::String expected = "PUT\nXUFAKrxLKna5cZ2REBfFkg==\ntext/plain\n" + sentHeader("Date") + "\n/b/k";
    EXPECT_EQ(CS3Client::getStringToSign(&request()), expected);
    EXPECT_EQ(sentHeader("Authorization"), "AWS AKID:" + client().getSignature(&request()));
}

TEST_F(CS3ClientRequestTest, sendsACopyOfTheBytes)
{
    std::string bytes = "first";
    put(bytes);
    bytes = "other";
    server().onConnection().readHead().readBytes(5).send(ok(""));
    request().perform();
    const std::string sent = received();
    EXPECT_TRUE(sent.ends_with("\r\n\r\nfirst")) << sent;
    EXPECT_NE(sent.find("\r\nContent-Length: 5\r\n"), std::string::npos) << sent;
}

TEST_F(CS3ClientRequestTest, sendsAnEmptyObjectWithItsLength)
{
    put("");
    answer(ok(""));
    request().perform();
    EXPECT_NE(received().find("\r\nContent-Length: 0\r\n"), std::string::npos) << received();
}

TEST_F(CS3ClientRequestTest, getsAWholeObjectWithoutARange)
{
    EXPECT_EQ(rangeOf(0, -1), "(missing)");
    EXPECT_EQ(request().getHTTPMethod(), "GET");
    EXPECT_EQ(path(), "/b/k");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, getsARange)
{
    EXPECT_EQ(rangeOf(100, -1), "bytes=100-");
    EXPECT_EQ(rangeOf(100, 50), "bytes=100-149");
    EXPECT_EQ(rangeOf(0, 10), "bytes=0-9");
    EXPECT_EQ(rangeOf(5'000'000'000, 1), "bytes=5000000000-5000000000");
    EXPECT_EQ(request().getHTTPMethod(), "GET");
}

TEST_F(CS3ClientRequestTest, asksForTheHeadersOfNothing)
{
    for (const long long start : {0LL, 7LL}) {
        EXPECT_EQ(rangeOf(start, 0), "(missing)");
        EXPECT_EQ(request().getHTTPMethod(), "HEAD");
    }
}

TEST_F(CS3ClientRequestTest, refusesRangesThatCannotBe)
{
    const kx::String start = "Invalid argument passed to 'CS3Client::prepareGetObjectRequest': ";
    EXPECT_EQ(support::messageOf([this] { rangeOf(-1, 5); }), start + "start must not be negative: -1, 5.");
    EXPECT_EQ(support::messageOf([this] { rangeOf(0, -2); }), start + "length must not be less than -1: 0, -2.");
    EXPECT_EQ(support::messageOf([this] { rangeOf(1, std::numeric_limits<long long>::max()); }),
        start + "start + length is beyond 64 bits: 1, 9223372036854775807.");
    EXPECT_EQ(rangeOf(0, std::numeric_limits<long long>::max()), "bytes=0-9223372036854775806");
}

TEST_F(CS3ClientRequestTest, getsHeaders)
{
    client().prepareGetObjectHeadersRequest(request(), "b", "k");
    EXPECT_EQ(path(), "/b/k");
    EXPECT_EQ(request().getHTTPMethod(), "HEAD");
    EXPECT_EQ(CS3Client::getStringToSign(&request()), "HEAD\n\n\n" + sentHeader("Date") + "\n/b/k");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, copiesAnObject)
{
    client().prepareCopyObjectRequest(request(), "my b", "old/k", L"n\u00e4w");
    EXPECT_EQ(path(), "/my%20b/n%C3%A4w");
    EXPECT_EQ(request().getHTTPMethod(), "PUT");
    EXPECT_EQ(sentHeader("x-amz-copy-source"), "/my%20b/old%2Fk");
    EXPECT_EQ(CS3Client::getStringToSign(&request()),
        "PUT\n\n\n" + sentHeader("Date") + "\nx-amz-copy-source:/my%20b/old%2Fk\n/my%20b/n%C3%A4w");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, copiesWithoutABody)
{
    client().prepareCopyObjectRequest(request(), "b", "old", "new");
    answer(ok(""));
    request().perform();
    const std::string sent = received();
    EXPECT_TRUE(sent.ends_with("\r\n\r\n")) << sent;
    EXPECT_NE(sent.find("\r\nContent-Length: 0\r\n"), std::string::npos) << sent;
}

TEST_F(CS3ClientRequestTest, deletesAnObject)
{
    client().prepareDeleteObjectRequest(request(), "b", "k");
    EXPECT_EQ(path(), "/b/k");
    EXPECT_EQ(request().getHTTPMethod(), "DELETE");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, listsABucket)
{
    EXPECT_EQ(listPath("", "", "", -1), "/b");
    EXPECT_EQ(request().getHTTPMethod(), "GET");
    EXPECT_EQ(CS3Client::getStringToSign(&request()), "GET\n\n\n" + sentHeader("Date") + "\n/b");
    expectSigned();
}

TEST_F(CS3ClientRequestTest, listsWithParametersInTheirOrder)
{
    EXPECT_EQ(listPath("", "", "", 1000), "/b?max-keys=1000");
    EXPECT_EQ(listPath("a b", "", "m", -1), "/b?prefix=a%20b&marker=m");
    EXPECT_EQ(listPath("p", "/", "m&m", 5), "/b?prefix=p&marker=m%26m&max-keys=5&delimiter=%2F");
    EXPECT_EQ(listPath("", "/", "", -1), "/b?delimiter=%2F");
    EXPECT_EQ(listPath("", "", "m", 0), "/b?marker=m&max-keys=0");
}

TEST_F(CS3ClientRequestTest, leavesOutNoCountButMinusOne)
{
    EXPECT_EQ(listPath("", "", "", -2), "/b?max-keys=-2");
}

TEST_F(CS3ClientRequestTest, asksForEncodedNamesOnDemandAndLast)
{
    client().setURLEncodedListings(true);
    EXPECT_EQ(listPath("p", "/", "m", 5), "/b?prefix=p&marker=m&max-keys=5&delimiter=%2F&encoding-type=url");
    EXPECT_EQ(listPath("", "", "", -1), "/b?encoding-type=url");
    EXPECT_EQ(CS3Client::getStringToSign(&request()), "GET\n\n\n" + sentHeader("Date") + "\n/b");
    client().setURLEncodedListings(false);
    EXPECT_EQ(listPath("", "", "", -1), "/b");
}

TEST_F(CS3ClientRequestTest, signsAListingOverItsPathAlone)
{
    listPath("p", "", "", 5);
    EXPECT_EQ(CS3Client::getStringToSign(&request()), "GET\n\n\n" + sentHeader("Date") + "\n/b");
}

TEST_F(CS3ClientRequestTest, letsLibcurlLeaveDotsAloneWhereANameHasThem)
{
    for (const kx::String& url : kx::TArray<kx::String>{"http://host/b/..", "http://host/./k", "http://host/../k",
             "http://host/.", "http://host/b/..?acl", "http://host/../", "http://host/b//../k"})
        EXPECT_TRUE(isSetFor(url, "PATH_AS_IS=1")) << url;
    for (const kx::String& url :
        kx::TArray<kx::String>{"http://host/b/k", "http://host", "http://host/b/...", "http://host/b/.k",
            "http://host/b/k.", "http://host/b/..%2Fk", "http://host/b?prefix=/../", "http://host/b#/../"})
        EXPECT_FALSE(isSetFor(url, "PATH_AS_IS=1")) << url;
}

TEST_F(CS3ClientRequestTest, followsFromHTTPSToHTTPSAlone)
{
    const auto secure = kx::newObj<CS3Client>("id", "secret", true, "host");
    EXPECT_TRUE(isSetFor("https://host/b", "REDIR_PROTOCOLS_STR=https", *secure));
    EXPECT_FALSE(isSetFor("http://host/b", "REDIR_PROTOCOLS_STR=https"));
}

/// Gives a text, and knows how long it is.
kx::P<CNetRequest::IDataSource> sourceOf(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    const auto buffer = kx::newObj<CNetRequest::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return kx::newObj<CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(buffer).get());
}

TEST_F(CS3ClientRequestTest, putsAnObjectFromASource)
{
    put("hello", "text/plain");
    const auto headersOf = [this] {
        std::vector<kx::String> lines;
        for (const auto line = request().getCustomHTTPHeaders()->createIterator(); line->next();)
            lines.push_back(line->getName() + (line->getName() == "Authorization" ? "" : line->getValue()));
        return lines;
    };
    auto expected = headersOf();
    client().preparePutObjectRequest(
        request(), "b", "k", sourceOf("hello").get(), 5, "XUFAKrxLKna5cZ2REBfFkg==", "text/plain");
    expected[0] = "Date" + sentHeader("Date");
    EXPECT_EQ(headersOf(), expected);
    EXPECT_EQ(path(), "/b/k");
    EXPECT_EQ(request().getHTTPMethod(), "PUT");
    EXPECT_EQ(sentHeader("Authorization"), "AWS AKID:" + client().getSignature(&request()));
}

TEST_F(CS3ClientRequestTest, putsAnObjectFromASourceWithoutDigestAndType)
{
    client().preparePutObjectRequest(request(), "b", "k", sourceOf("hello").get(), 5, "", "");
    EXPECT_EQ(sentHeader("Content-MD5"), "(missing)");
    EXPECT_EQ(sentHeader("Content-Type"), "(missing)");
}

TEST_F(CS3ClientRequestTest, refusesAnAccessKeyOfTwoLines)
{
    for (const kx::String& key : kx::TArray<kx::String>{"AK\nX-Other: 1", "AK\rID", "AKID\r\n"})
        EXPECT_EQ(support::messageOf([&key] { CS3Client(key, "secret", true); }),
            "Invalid argument passed to 'CS3Client::CS3Client': access key id must not hold a line end.");
}

struct CRefusal {
    kx::String function;
    kx::String detail;
    std::function<void(CS3Client&, CNetRequest&)> action;
};

class CS3ClientRefusalTest : public CS3ClientFixture, public testing::WithParamInterface<CRefusal> {};

TEST_P(CS3ClientRefusalTest, namesTheFunctionAndLeavesTheRequestAlone)
{
    request().setURL("http://before/");
    const auto error = support::errorOf([this] { GetParam().action(client(), request()); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(dynamic_cast<const kx::CInvalidArgError*>(error.get()));
    EXPECT_EQ(error->getMessage(),
        "Invalid argument passed to 'CS3Client::" + GetParam().function + "': " + GetParam().detail + ".");
    EXPECT_TRUE(error->getProps().getMap().empty());
    EXPECT_EQ(request().getURL(), "http://before/");
}

constexpr char noBucket[] = "bucket name must not be empty";
constexpr char noObject[] = "object name must not be empty";
constexpr char noCopyName[] = "neither the existing nor the new object name may be empty";

INSTANTIATE_TEST_SUITE_P(Names, CS3ClientRefusalTest,
    testing::Values(
        CRefusal{"preparePutObjectRequest", noBucket,
            [](auto& client, auto& request) { client.preparePutObjectRequest(request, "", "", "", 0, ""); }},
        CRefusal{"preparePutObjectRequest", noObject,
            [](auto& client, auto& request) { client.putObject(request, "b", "", "", 0, ""); }},
        CRefusal{"preparePutObjectRequest", "size must not be negative",
            [](auto& client, auto& request) { client.putObject(request, "b", "k", "", -1, ""); }},
        CRefusal{"preparePutObjectRequest", "content type must not hold a line end",
            [](auto& client, auto& request) {
                client.putObject(request, "b", "k", "", 0, "text/plain\r\nX-Other: 1");
            }},
        CRefusal{"preparePutObjectRequest", "content type must not hold a line end",
            [](auto& client, auto& request) {
                client.putObject(request, "b", "k", sourceOf("").get(), 0, "", "text/plain\n");
            }},
        CRefusal{"preparePutObjectRequest", "Content-MD5 must not hold a line end",
            [](auto& client, auto& request) {
                client.putObject(request, "b", "k", sourceOf("").get(), 0, "a\rb", "");
            }},
        CRefusal{"preparePutObjectRequest", "source is null",
            [](auto& client, auto& request) { client.putObject(request, "b", "k", nullptr, 0, "", ""); }},
        CRefusal{"preparePutObjectRequest", "size must not be negative",
            [](auto& client, auto& request) { client.putObject(request, "b", "k", sourceOf("").get(), -1, "", ""); }},
        CRefusal{"preparePutObjectRequest", noObject,
            [](auto& client, auto& request) { client.putObject(request, "b", "", sourceOf("").get(), 0, "", ""); }},
        CRefusal{"prepareGetObjectRequest", noBucket,
            [](auto& client, auto& request) { client.prepareGetObjectRequest(request, "", "", -1, -1); }},
        CRefusal{"prepareGetObjectRequest", noObject,
            [](auto& client, auto& request) { client.getObject(request, "b", "", -1, -1); }},
        CRefusal{"prepareGetObjectHeadersRequest", noBucket,
            [](auto& client, auto& request) { client.prepareGetObjectHeadersRequest(request, "", ""); }},
        CRefusal{"prepareGetObjectHeadersRequest", noObject,
            [](auto& client, auto& request) { client.getObjectHeaders(request, "b", ""); }},
        CRefusal{"prepareGetObjectHeadersRequest", noObject,
            [](auto& client, auto& request) { client.objectExists(request, "b", ""); }},
        CRefusal{"prepareGetObjectHeadersRequest", noBucket,
            [](auto& client, auto& request) { client.getObjectSize(request, "", "k"); }},
        CRefusal{"prepareCopyObjectRequest", noBucket,
            [](auto& client, auto& request) { client.prepareCopyObjectRequest(request, "", "", ""); }},
        CRefusal{"prepareCopyObjectRequest", noCopyName,
            [](auto& client, auto& request) { client.copyObject(request, "b", "", "new"); }},
        CRefusal{"prepareCopyObjectRequest", noCopyName,
            [](auto& client, auto& request) { client.copyObject(request, "b", "old", ""); }},
        CRefusal{"prepareDeleteObjectRequest", noBucket,
            [](auto& client, auto& request) { client.prepareDeleteObjectRequest(request, "", ""); }},
        CRefusal{"prepareDeleteObjectRequest", noObject,
            [](auto& client, auto& request) { client.deleteObject(request, "b", ""); }},
        CRefusal{"prepareListObjectsRequest", noBucket,
            [](auto& client, auto& request) { client.listObjects(request, "", "", "", "", -1); }}));

} // namespace
