// Operations that a client of an endpoint performs for others, and what it learns from the store on the way.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "norla/core/CCURLError.h"
#include "norla/core/errorKind.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3SignerV4.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

namespace {

using norla::CS3Call;
using norla::CS3Client;
using norla::CS3Endpoint;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// Those that they are given, and once, if that is wanted, nobody gives any.
class CScriptedCredentials : public kx::CBase, public norla::IS3Credentials {
public:
    norla::CS3Credentials get() override
    {
        if (++m_count == failAt)
            throw norla::CCURLError(CURLE_COULDNT_CONNECT, "no answer", "", 0, "");
        return current;
    }

    norla::CS3Credentials current{.accessKeyId = "AKID"};
    int failAt = 0; ///< counted from 1

private:
    int m_count = 0;
};

/// Has its three bytes a moment too late.
class CHesitantSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    int read(unsigned char* buffer, int size, const HeaderMap& /*responseHeaders*/) override
    {
        if (!std::exchange(m_isReady, true) || m_position == 3 || size < 3)
            return 0;
        std::fill_n(buffer, 3, 'x');
        m_position = 3;
        return 3;
    }
    long long getLength() override { return 3; }
    void seek(long long position) override { m_position = position; }
    long long getPosition() override { return m_position; }

private:
    long long m_position = 0;
    bool m_isReady = false;
};

class CS3ClientCallTest : public CS3ClientFixture {
protected:
    CS3ClientCallTest()
    {
        m_credentials->current.secretAccessKey = secret;
        useEndpoint(CS3Endpoint::ceph(host(), false));
    }

    void useEndpoint(const CS3Endpoint& endpoint)
    {
        m_client = kx::newObj<CS3Client>(endpoint, m_credentials.get());
        m_client->setMaxRetries(0);
    }

    CS3Client& client() { return *m_client; }

    void perform(const CS3Call& call) { m_client->performCall(request(), call); }

    /// The error with which the call ends.
    kx::P<kx::CError> failureOf(const CS3Call& call)
    {
        return support::errorOf([&] { perform(call); });
    }

    static std::string withStatus(int status, const std::string& headers, const std::string& body = "")
    {
        return "HTTP/1.1 " + std::to_string(status) + " Some Reason\r\nConnection: close\r\nContent-Length: "
            + std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body;
    }

    /// "Date: ...", so many seconds from now.
    static std::string dateHeader(long long seconds)
    {
        const kx::CTime time(kx::CTime::now().getMicroseconds() + seconds * 1'000'000);
        return "Date: " + kx::CTimeFields(time, kx::CTimeFields::TypeUTC).toInternetTimestamp().toUTF8() + "\r\n";
    }

    /// The day and time that the request on that connection was signed for, without the seconds: "20130524T0000".
    std::string signedMinute(size_t connection)
    {
        constexpr std::string_view name = "x-amz-date: ";
        const std::string head = received(connection);
        return head.substr(head.find(name) + name.size(), 13);
    }

    static std::string minuteAt(long long seconds)
    {
        const kx::CTimeFields fields(kx::CTime(kx::CTime::now().getMicroseconds() + seconds * 1'000'000));
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%04d%02d%02dT%02d%02d", static_cast<int>(fields.getYear()),
            static_cast<int>(fields.getMonth()), static_cast<int>(fields.getDay()), static_cast<int>(fields.getHour()),
            static_cast<int>(fields.getMinute()));
        return text.data();
    }

    static kx::String codeOf(const kx::P<kx::CError>& error)
    {
        const auto* const s3Error = dynamic_cast<const norla::CS3Error*>(error.get());
        return s3Error ? s3Error->getS3Code() : "(none)";
    }

    static inline const CS3Call get{.bucketName = "bucket", .objectName = "a/b"};
    static constexpr long long anHour = 3600;

    const kx::P<CScriptedCredentials> m_credentials = kx::newObj<CScriptedCredentials>();

private:
    kx::P<CS3Client> m_client;
};

TEST_F(CS3ClientCallTest, writesParametersHeadersAndBody)
{
    answer(ok(""));
    perform({.method = "POST",
        .bucketName = "bucket",
        .objectName = "a b",
        .parameters = {{"uploads", ""}, {"prefix", "x&y"}},
        .headers = {{"x-amz-acl", "private"}, {"X-Empty", ""}},
        .body = "<x/>"});
    EXPECT_THAT(received(), StartsWith("POST /bucket/a%20b?uploads&prefix=x%26y HTTP/1.1\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nx-amz-acl: private\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nX-Empty:\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Length: 4\r\n"));
}

TEST_F(CS3ClientCallTest, asksTheServiceWithoutABucket)
{
    answer(ok(""));
    perform({});
    EXPECT_THAT(received(), StartsWith("GET / HTTP/1.1\r\n"));
}

TEST_F(CS3ClientCallTest, signsTheBytesOfTheBody)
{
    client().prepareCall(request(), {.method = "PUT", .bucketName = "bucket", .body = "abc"});
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(CS3ClientCallTest, refusesWhatMakesNoSense)
{
    EXPECT_THROW(perform({.objectName = "k"}), kx::CInvalidArgError);
    EXPECT_THROW(perform({.method = "", .bucketName = "b"}), kx::CInvalidArgError);
    EXPECT_THROW(perform({.bucketName = "b", .parameters = {{"", "x"}}}), kx::CInvalidArgError);
    EXPECT_THROW(perform({.bucketName = "b", .headers = {{"x-amz-acl", "a\r\nb"}}}), kx::CInvalidArgError);
    EXPECT_THROW(perform({.bucketName = "b", .headers = {{"", "a"}}}), kx::CInvalidArgError);
    EXPECT_THROW(perform({.bucketName = "b", .sourceSize = -1}), kx::CInvalidArgError);
}

TEST_F(CS3ClientCallTest, leavesASinkAloneThatTheStoresErrorIsNotFor)
{
    answer(answerWith(404, errorDocument("NoSuchKey")));
    const auto stream = kx::newObj<CS3Client::Buffer>();
    CS3Call call = get;
    call.sink = kx::newObj<norla::CNetRequest::CStreamDataSink>(kx::newObj<kx::CBufferStream>(stream).get());
    EXPECT_EQ(codeOf(failureOf(call)), "NoSuchKey");
    EXPECT_EQ(stream->getSize(), 0U);
}

TEST_F(CS3ClientCallTest, givesASinkTheObject)
{
    answer(ok("hello"));
    const auto stream = kx::newObj<CS3Client::Buffer>();
    CS3Call call = get;
    call.sink = kx::newObj<norla::CNetRequest::CStreamDataSink>(kx::newObj<kx::CBufferStream>(stream).get());
    perform(call);
    EXPECT_EQ(stream->getSize(), 5U);
}

TEST_F(CS3ClientCallTest, goesByTheClockOfAStoreThatForbids)
{
    answer(withStatus(403, dateHeader(anHour), errorDocument("RequestTimeTooSkewed")));
    answer(ok("hello"));
    perform(get);
    EXPECT_EQ(body(), "hello");
    EXPECT_THAT(signedMinute(1), testing::AnyOf(minuteAt(anHour), minuteAt(anHour - 60)));
}

TEST_F(CS3ClientCallTest, keepsTheTimeOfTheStore)
{
    answer(withStatus(403, dateHeader(-anHour)));
    answer(ok(""));
    answer(ok(""));
    perform(get);
    client().prepareGetObjectRequest(request(), "bucket", "k", 0, -1);
    EXPECT_THAT(sentHeader("x-amz-date").toUTF8(),
        testing::AnyOf(StartsWith(minuteAt(-anHour)), StartsWith(minuteAt(-anHour - 60))));
    client().performRequest(request());
}

TEST_F(CS3ClientCallTest, believesAClockThatIsNearOurs)
{
    answer(withStatus(403, dateHeader(60), errorDocument("AccessDenied")));
    EXPECT_EQ(codeOf(failureOf(get)), "AccessDenied");
}

TEST_F(CS3ClientCallTest, believesNoClockOfAStoreThatDoesNotForbid)
{
    answer(withStatus(404, dateHeader(anHour), errorDocument("NoSuchKey")));
    EXPECT_EQ(codeOf(failureOf(get)), "NoSuchKey");
}

TEST_F(CS3ClientCallTest, endsWhenTheStoreForbidsByItsOwnTimeToo)
{
    answer(withStatus(403, dateHeader(anHour), errorDocument("RequestTimeTooSkewed")));
    answer(withStatus(403, dateHeader(anHour), errorDocument("AccessDenied")));
    EXPECT_EQ(codeOf(failureOf(get)), "AccessDenied");
}

TEST_F(CS3ClientCallTest, endsWithAStoreWhoseClockRuns)
{
    for (int count = 1; count <= 2; ++count)
        answer(withStatus(403, dateHeader(count * anHour), errorDocument("RequestTimeTooSkewed")));
    EXPECT_EQ(codeOf(failureOf(get)), "RequestTimeTooSkewed");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ClientCallTest, goesByTheStoresClockOnceHoweverOftenItTries)
{
    client().setMaxRetries(1);
    for (int count = 1; count <= 3; ++count)
        answer(withStatus(403, dateHeader(count * anHour), errorDocument("RequestTimeTooSkewed")));
    EXPECT_EQ(codeOf(failureOf(get)), "RequestTimeTooSkewed");
    EXPECT_EQ(server().connectionCount(), 3U);
}

constexpr char wrongRegion[] = "<Error><Code>AuthorizationHeaderMalformed</Code><Message>m</Message>"
                               "<Region>eu-west-3</Region></Error>";

TEST_F(CS3ClientCallTest, signsForTheRegionThatTheStoreNames)
{
    answer(withStatus(400, "", wrongRegion));
    answer(ok("hello"));
    perform(get);
    EXPECT_EQ(body(), "hello");
    EXPECT_THAT(received(0), HasSubstr("/us-east-1/s3/aws4_request"));
    EXPECT_THAT(received(1), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3ClientCallTest, followsAStoreToOneOtherRegion)
{
    for (const char* const region : {"eu-west-3", "eu-north-1"})
        answer(withStatus(301, std::string("x-amz-bucket-region: ") + region + "\r\n"));
    EXPECT_EQ(codeOf(failureOf(get)), "PermanentRedirect");
    EXPECT_EQ(server().connectionCount(), 2U);
    EXPECT_THAT(received(1), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3ClientCallTest, goesByBothClockAndRegionOfAStore)
{
    answer(withStatus(403, dateHeader(anHour), errorDocument("RequestTimeTooSkewed")));
    answer(withStatus(400, dateHeader(anHour), wrongRegion));
    answer(ok("hello"));
    perform(get);
    EXPECT_EQ(body(), "hello");
    EXPECT_THAT(signedMinute(2), testing::AnyOf(minuteAt(anHour), minuteAt(anHour - 60)));
    EXPECT_THAT(received(2), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3ClientCallTest, goesToTheHostOfTheRegion)
{
    CS3Endpoint endpoint = CS3Endpoint::ceph("s3.us-east-1.localhost:" + kx::toString(server().getPort()), false);
    useEndpoint(endpoint);
    answer(withStatus(301, "x-amz-bucket-region: eu-west-3\r\n"));
    answer(ok("hello"));
    perform(get);
    EXPECT_THAT(received(1), HasSubstr("\r\nHost: s3.eu-west-3.localhost:"));
    EXPECT_THAT(client().getObjectURL(request(), "bucket", "k").toUTF8(), StartsWith("http://s3.eu-west-3.localhost:"));
}

TEST_F(CS3ClientCallTest, goesNowhereForARegionThatIsNone)
{
    for (const char* const region : {"evil.example/", "a b", "", "us-east-1", "A"}) {
        answer(withStatus(301, std::string("x-amz-bucket-region: ") + region + "\r\n"));
        EXPECT_EQ(codeOf(failureOf(get)), "PermanentRedirect") << region;
    }
    EXPECT_EQ(server().connectionCount(), 5U);
}

TEST_F(CS3ClientCallTest, sendsTheBodyAgainWithTheNewSignature)
{
    answer(withStatus(400, "", wrongRegion));
    server().onConnection().readHead().readBytes(3).send(ok(""));
    perform({.method = "PUT", .bucketName = "bucket", .objectName = "k", .body = "abc"});
    EXPECT_THAT(received(1), testing::EndsWith("\r\n\r\nabc"));
    EXPECT_THAT(received(1), HasSubstr("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
}

class CS3ChunkedBodyTest : public CS3ClientCallTest {
protected:
    /// An object that a source gives, of which it has so many bytes.
    CS3Call put(size_t size, size_t had)
    {
        const std::string content(had, 'x');
        const auto bytes = kx::newObj<CS3Client::Buffer>();
        bytes->append(reinterpret_cast<const unsigned char*>(content.data()), had);
        return {.method = "PUT",
            .bucketName = "bucket",
            .objectName = "k",
            .headers = {{"Content-Encoding", "gzip"}},
            .source = kx::newObj<norla::CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get()),
            .sourceSize = static_cast<long long>(size)};
    }

    static std::string bodyIn(const std::string& request) { return request.substr(request.find("\r\n\r\n") + 4); }
};

TEST_F(CS3ChunkedBodyTest, isSentInSignedChunks)
{
    server().onConnection().readHead().readBytes(262'144 + 87 + 5 + 85 + 86 + 2).send(ok(""));
    perform(put(262'149, 262'149));
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Encoding: gzip\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nx-amz-decoded-content-length: 262149\r\n"));
    const std::string body = bodyIn(received());
    EXPECT_THAT(body, StartsWith("40000;chunk-signature="));
    EXPECT_EQ(
        body.substr(262'144 + 22 + 64 + 2, 24), "\r\n5;chunk-signature=" + body.substr(262'144 + 22 + 64 + 22, 4));
    EXPECT_THAT(body, HasSubstr("\r\nxxxxx\r\n0;chunk-signature="));
    EXPECT_THAT(body, testing::EndsWith("\r\n\r\n"));
}

TEST_F(CS3ChunkedBodyTest, beginsAnewWithAnotherSignature)
{
    answer(withStatus(400, "", wrongRegion));
    server().onConnection().readHead().readBytes(85 + 3 + 86).send(ok(""));
    perform(put(3, 3));
    const std::string head = received(1);
    const std::string body = bodyIn(head);
    const size_t date = head.find("x-amz-date: ") + 12;
    const std::string signature = kx::newObj<norla::CS3SignerV4>("eu-west-3")
                                      ->signChunk(head.substr(date, 16), head.substr(head.find("Signature=") + 10, 64),
                                          "cd2eb0837c9b4c962c22d2ff8b5441b7b45805887f051d39bf133b583baf6860",
                                          {.accessKeyId = "AKID", .secretAccessKey = secret});
    EXPECT_THAT(body, StartsWith("3;chunk-signature=" + signature + "\r\nxxx\r\n0;chunk-signature="));
}

TEST_F(CS3ChunkedBodyTest, isAnErrorWhenTheSourceHasLess)
{
    server().onConnection().readHead().readToEnd();
    EXPECT_TRUE(failureOf(put(270'000, 263'000)));
}

TEST_F(CS3ChunkedBodyTest, isSentAsItIsByWhoHasNoKey)
{
    m_credentials->current = {};
    server().onConnection().readHead().readBytes(3).send(ok(""));
    perform(put(3, 3));
    EXPECT_EQ(bodyIn(received()), "xxx");
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Length: 3\r\n"));
    EXPECT_THAT(received(), Not(HasSubstr("x-amz-")));
}

TEST_F(CS3ChunkedBodyTest, isSignedAgainAsItWasBehindCredentialsThatWereNotThere)
{
    client().setRetryPolicy({.attempts = 3, .firstPause = {}});
    m_credentials->failAt = 2;
    server().onConnection().readHead().readBytes(85 + 3 + 86).send(withStatus(503, "", ""));
    server().onConnection().readHead().readBytes(85 + 3 + 86).send(ok(""));
    perform(put(3, 3));
    EXPECT_THAT(received(1), HasSubstr("\r\nx-amz-content-sha256: STREAMING-AWS4-HMAC-SHA256-PAYLOAD\r\n"));
}

TEST_F(CS3ChunkedBodyTest, beginsAnewWhereTheSourceHadNothingAtFirst)
{
    server().onConnection().readToEnd(); // newer libcurls send no head then
    server().onConnection().readHead().readBytes(85 + 3 + 86).send(ok(""));
    CS3Call call = put(3, 3);
    call.source = kx::newObj<CHesitantSource>();
    client().prepareCall(request(), call);
    EXPECT_THROW(client().performRequest(request()), kx::CError);
    client().performRequest(request());
    EXPECT_THAT(bodyIn(received(1)), HasSubstr("\r\nxxx\r\n0;chunk-signature="));
}

TEST_F(CS3ClientCallTest, keepsToItsBudgetBehindACorrectionToo)
{
    client().setRetryPolicy({.attempts = 2, .budget = kx::CTimeSpan::fromSeconds(1)});
    answer(withStatus(403, dateHeader(-anHour)));
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n").readToEnd();
    const auto start = std::chrono::steady_clock::now();
    const auto error = failureOf(get);
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::TotalTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // 30 without a budget
}

TEST_F(CS3ClientCallTest, saysOfAHEADWhatItsStatusStandsFor)
{
    CS3Call head = get;
    head.method = "HEAD";
    answer(withStatus(404, "x-amz-request-id: tx7\r\nx-amz-id-2: h9\r\n"));
    const auto error = failureOf(head);
    EXPECT_EQ(codeOf(error), "NoSuchKey");
    EXPECT_EQ(error->getProps().get("s3-requestID"), "tx7");
    EXPECT_EQ(error->getProps().get("s3-hostID"), "h9");
    EXPECT_EQ(error->getProps().get("s3-resource"), "/bucket/a%2Fb");
}

TEST_F(CS3ClientCallTest, saysOfAHEADWhatEachStatusStandsFor)
{
    struct CRow {
        int status;
        const char* code;
        const char* message;
    };
    constexpr auto rows = std::to_array<CRow>({
        {301, "PermanentRedirect", "The bucket is at another address"},
        {304, "NotModified", "The object is as it was"},
        {307, "TemporaryRedirect", "The bucket is at another address for the time being"},
        {400, "BadRequest", "The store does not understand the request"},
        {403, "AccessDenied", "The store forbids the request"},
        {405, "MethodNotAllowed", "The store does not allow this with this resource"},
        {409, "OperationAborted", "Another operation on this resource is under way"},
        {411, "MissingContentLength", "The store wants to know the length of the body"},
        {412, "PreconditionFailed", "A condition of the request does not hold"},
        {416, "InvalidRange", "The object has no such part"},
        {500, "InternalError", "The store has failed"},
        {501, "NotImplemented", "The store cannot do this"},
        {503, "SlowDown", "The store wants fewer requests"},
    });
    CS3Call head = get;
    head.method = "HEAD";
    for (const CRow& row : rows) {
        answer(withStatus(row.status, ""));
        const auto error = failureOf(head);
        EXPECT_EQ(codeOf(error).toUTF8(), row.code) << row.status;
        ASSERT_TRUE(error) << row.status;
        EXPECT_EQ(error->getCode(), row.status);
        EXPECT_EQ(error->getMessage().toUTF8(), "Amazon S3 error: " + std::string(row.message) + "(" + row.code + ")");
        EXPECT_EQ(error->getProps().get("s3-resource"), "/bucket/a%2Fb") << row.status;
    }
}

TEST_F(CS3ClientCallTest, saysThatTheBucketIsMissingWhereNobodyAskedForAnObject)
{
    answer(withStatus(404, ""));
    EXPECT_EQ(codeOf(failureOf({.method = "HEAD", .bucketName = "bucket"})), "NoSuchBucket");
}

TEST_F(CS3ClientCallTest, triesNoHEADAgainThatTheStoreDoesNotUnderstand)
{
    client().setMaxRetries(2);
    answer(withStatus(400, ""));
    EXPECT_EQ(codeOf(failureOf({.method = "HEAD", .bucketName = "bucket"})), "BadRequest");
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(CS3ClientCallTest, namesTheStoresHostInAnError)
{
    answer(withStatus(409, "", "<Error><Code>Conflict</Code><HostId>h1</HostId></Error>"));
    EXPECT_EQ(failureOf(get)->getProps().get("s3-hostID"), "h1");
}

TEST_F(CS3ClientCallTest, triesAgainAsThePolicySays)
{
    client().setRetryPolicy({.attempts = 3, .firstPause = {}});
    answer(withStatus(503, ""));
    answer(withStatus(400, "", errorDocument("IncompleteBody")));
    answer(ok("hello"));
    EXPECT_EQ(client().performCall(request(), get), 3);
    EXPECT_EQ(body(), "hello");
}

TEST_F(CS3ClientCallTest, repeatsAPOSTOnlyIfThatDoesNoHarm)
{
    client().setRetryPolicy({.attempts = 2, .firstPause = {}});
    answer(withStatus(503, ""));
    EXPECT_EQ(codeOf(failureOf({.method = "POST", .bucketName = "bucket"})), "SlowDown");
    answer(withStatus(503, ""));
    answer(ok(""));
    EXPECT_EQ(client().performCall(request(), {.method = "POST", .bucketName = "bucket", .mayRepeat = true}), 2);
}

TEST_F(CS3ClientCallTest, endsWithTheLastErrorThatThePolicyAllows)
{
    client().setRetryPolicy({.attempts = 2, .firstPause = {}});
    answer(withStatus(503, ""));
    answer(withStatus(500, ""));
    EXPECT_EQ(codeOf(failureOf(get)), "InternalError");
}

TEST_F(CS3ClientCallTest, signsEachAttemptOnce)
{
    client().setMaxRetries(1);
    answer(withStatus(503, ""));
    answer(ok(""));
    perform(get);
    const std::string head = received(1);
    EXPECT_EQ(head.find("Authorization:"), head.rfind("Authorization:"));
    EXPECT_EQ(head.find("x-amz-date:"), head.rfind("x-amz-date:"));
}

TEST_F(CS3ClientCallTest, leavesTheBucketInTheHostAsItIsWhenItGoesToAnotherRegion)
{
    CS3Endpoint endpoint = CS3Endpoint::ceph("s3.us-east-1.localhost:" + kx::toString(server().getPort()), false);
    endpoint.addressing = CS3Endpoint::Addressing::VirtualHost;
    useEndpoint(endpoint);
    answer(withStatus(301, "x-amz-bucket-region: eu-west-3\r\n"));
    answer(ok("hello"));
    perform({.bucketName = "a.us-east-1.b", .objectName = "k"});
    EXPECT_THAT(received(1), HasSubstr("\r\nHost: a.us-east-1.b.s3.eu-west-3.localhost:"));
}

TEST_F(CS3ClientCallTest, learnsNoTimeThatNobodyCanSignFor)
{
    for (const char* const date : {"Fri, 31 Dec 9999 23:59:59 GMT", "Sun, 06 Nov 292000 08:49:37 GMT"}) {
        answer(withStatus(403, std::string("Date: ") + date + "\r\n"));
        EXPECT_EQ(codeOf(failureOf(get)), "AccessDenied") << date;
    }
    answer(ok("hello"));
    perform(get);
    EXPECT_EQ(body(), "hello");
}

TEST_F(CS3ClientCallTest, comesBackFromARegionWhoseHostIsNotThere)
{
    CS3Endpoint endpoint = CS3Endpoint::ceph("127.0.0.1:" + kx::toString(server().getPort()), false);
    endpoint.region = "0"; // which leads to 127.1.0.1, where nobody listens
    useEndpoint(endpoint);
    answer(withStatus(301, "x-amz-bucket-region: 1\r\n"));
    EXPECT_TRUE(failureOf(get));
    EXPECT_EQ(request().getURL(), client().getObjectURL(request(), "bucket", "a/b"));
    answer(ok("hello"));
    perform(get);
    EXPECT_EQ(body(), "hello");
    EXPECT_THAT(received(1), HasSubstr("/0/s3/aws4_request"));
}

TEST_F(CS3ClientCallTest, triesARegionAgainWhoseHostWasNotThere)
{
    CS3Endpoint endpoint = CS3Endpoint::ceph("127.0.0.1:" + kx::toString(server().getPort()), false);
    endpoint.region = "0"; // as above
    useEndpoint(endpoint);
    client().setMaxRetries(1);
    for (int count = 1; count <= 2; ++count)
        answer(withStatus(301, "x-amz-bucket-region: 1\r\n"));
    const auto error = failureOf(get);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->getMessage().toUTF8(), HasSubstr("127.1.0.1"));
    EXPECT_EQ(server().connectionCount(), 2U);
}

} // namespace
