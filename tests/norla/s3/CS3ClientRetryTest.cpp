#include "kx/containers/TArray.h"
#include "kx/text/numbers.h"
#include "kx/time/CTime.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <array>
#include <stdexcept>
#include <string_view>

namespace {

using norla::CCURLError;
using norla::CS3Error;
using norla::CS3ErrorResponse;
using Lines = std::vector<std::string>;

CS3Error s3Error(const kx::String& code, int status = 400)
{
    return {CS3ErrorResponse(code, "Because", "/bucket/key", "tx01"), status};
}

CCURLError httpError(int status)
{
    return {CURLE_HTTP_RETURNED_ERROR, "", "http", status, ""};
}

CCURLError transferError(CURLcode code)
{
    return {code, "", "", 0, ""};
}

/// What a client makes of an error, without a transfer.
class CS3ErrorJudgementTest : public CS3ClientFixture {};

TEST_F(CS3ErrorJudgementTest, knowsTheCodesOfAnS3Error)
{
    kx::String s3Code = "old";
    kx::String httpCode = "old";
    norla::CS3Client::extractErrorCodes(s3Error("SlowDown", 503), s3Code, httpCode);
    EXPECT_EQ(s3Code, "SlowDown");
    EXPECT_EQ(httpCode, "503");
}

TEST_F(CS3ErrorJudgementTest, knowsTheStatusOfATransferError)
{
    kx::String s3Code = "old";
    kx::String httpCode = "old";
    norla::CS3Client::extractErrorCodes(httpError(404), s3Code, httpCode);
    EXPECT_EQ(s3Code, "");
    EXPECT_EQ(httpCode, "404");
}

TEST_F(CS3ErrorJudgementTest, knowsTheStatusOfAnyErrorThatHasOne)
{
    kx::CProps props;
    props.set("responseCode", "418");
    kx::String s3Code;
    kx::String httpCode;
    norla::CS3Client::extractErrorCodes(kx::CError("m", "d", 1, props), s3Code, httpCode);
    EXPECT_EQ(httpCode, "418");
}

TEST_F(CS3ErrorJudgementTest, knowsNoCodesOfOtherExceptions)
{
    kx::String s3Code = "old";
    kx::String httpCode = "old";
    norla::CS3Client::extractErrorCodes(std::runtime_error("m"), s3Code, httpCode);
    EXPECT_EQ(s3Code, "");
    EXPECT_EQ(httpCode, "");
}

TEST_F(CS3ErrorJudgementTest, retriesWhatTheServiceCallsTransient)
{
    for (const kx::String& code : kx::TArray<kx::String>{"InternalError", "SlowDown", "IncompleteBody", "InvalidDigest",
             "OperationAborted", "RequestTimeTooSkewed"})
        EXPECT_TRUE(client().shouldRetryRequest(s3Error(code, 403))) << code;
}

TEST_F(CS3ErrorJudgementTest, doesNotRetryOtherCodesOfTheService)
{
    for (const kx::String& code :
        kx::TArray<kx::String>{"AccessDenied", "NoSuchKey", "internalerror", "SlowDownPlease"})
        EXPECT_FALSE(client().shouldRetryRequest(s3Error(code, 503))) << code;
}

TEST_F(CS3ErrorJudgementTest, retriesStatusesThatCanPass)
{
    for (const int status : {500, 503, 400, 409}) {
        EXPECT_TRUE(client().shouldRetryRequest(httpError(status))) << status;
        EXPECT_TRUE(client().shouldRetryRequest(s3Error("", status))) << status;
    }
}

TEST_F(CS3ErrorJudgementTest, doesNotRetryOtherStatuses)
{
    for (const int status : {301, 401, 403, 404, 412, 416, 501, 502, 504})
        EXPECT_FALSE(client().shouldRetryRequest(httpError(status))) << status;
}

TEST_F(CS3ErrorJudgementTest, retriesLostConnections)
{
    for (const CURLcode code :
        {CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT, CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR})
        EXPECT_TRUE(client().shouldRetryRequest(transferError(code))) << code;
}

TEST_F(CS3ErrorJudgementTest, doesNotRetryOtherFailuresOfATransfer)
{
    for (const CURLcode code : {CURLE_COULDNT_RESOLVE_HOST, CURLE_PEER_FAILED_VERIFICATION, CURLE_PARTIAL_FILE,
             CURLE_WRITE_ERROR, CURLE_URL_MALFORMAT, CURLE_SSL_CONNECT_ERROR})
        EXPECT_FALSE(client().shouldRetryRequest(transferError(code))) << code;
}

/// The service's codes that are not transient, however much some of them look so.
constexpr auto lastingCodes = std::to_array<std::string_view>(
    {"AccessDenied", "AccountProblem", "AllAccessDisabled", "AmbiguousGrantByEmailAddress",
        "AuthorizationHeaderMalformed", "BadDigest", "Bandwidth", "BandwidthLimitExceeded", "BucketAlreadyExists",
        "BucketAlreadyOwnedByYou", "BucketNotEmpty", "ConditionalRequestConflict", "CredentialsNotSupported",
        "EntityTooLarge", "EntityTooSmall", "ExpiredToken", "IllegalVersioningConfigurationException",
        "InternalFailure", "InvalidAccessKeyId", "InvalidArgument", "InvalidBucketName", "InvalidBucketState",
        "InvalidObjectState", "InvalidPart", "InvalidRange", "InvalidRequest", "InvalidSecurity", "InvalidToken",
        "KeyTooLongError", "MalformedXML", "MaxMessageLengthExceeded", "MethodNotAllowed", "MissingContentLength",
        "NoSuchBucket", "NoSuchBucketPolicy", "NoSuchKey", "NoSuchLifecycleConfiguration", "NoSuchUpload",
        "NoSuchVersion", "NotFound", "NotImplemented", "PermanentRedirect", "PreconditionFailed", "Redirect",
        "RequestLimitExceeded", "RequestTimeout", "RequestTimeTooSkewedByFar", "RestoreAlreadyInProgress",
        "ServiceUnavailable", "SignatureDoesNotMatch", "TemporaryRedirect", "Throttling", "ThrottlingException",
        "TooManyBuckets", "TooManyRequests", "UnexpectedContent", "internalerror", "SLOWDOWN", "SlowDown ", "Slow"});

TEST_F(CS3ErrorJudgementTest, retriesNoOtherCodeOfTheService)
{
    for (const std::string_view code : lastingCodes)
        EXPECT_FALSE(client().shouldRetryRequest(s3Error(kx::String::fromLatin1(code), 503))) << code;
}

TEST_F(CS3ErrorJudgementTest, slowsDownForNoOtherCodeOfTheService)
{
    for (const std::string_view code : lastingCodes)
        EXPECT_FALSE(client().shouldSlowDown(s3Error(kx::String::fromLatin1(code), 503))) << code;
}

TEST_F(CS3ErrorJudgementTest, findsMissingOnlyKeyAndBucket)
{
    for (const std::string_view code : lastingCodes)
        EXPECT_EQ(client().isNotFoundError(s3Error(kx::String::fromLatin1(code), 400)),
            code == "NoSuchKey" || code == "NoSuchBucket")
            << code;
}

TEST_F(CS3ErrorJudgementTest, knowsFourStatusesToRetryOneToSlowDownAndOneForMissing)
{
    for (int status = 100; status < 1000; ++status) {
        EXPECT_EQ(client().shouldRetryRequest(httpError(status)),
            status == 400 || status == 409 || status == 500 || status == 503)
            << status;
        EXPECT_EQ(client().shouldSlowDown(httpError(status)), status == 503) << status;
        EXPECT_EQ(client().isNotFoundError(httpError(status)), status == 404) << status;
    }
}

TEST_F(CS3ErrorJudgementTest, knowsFiveCodesOfATransferToRetry)
{
    for (int code = 1; code < CURL_LAST; ++code) {
        EXPECT_EQ(client().shouldRetryRequest(transferError(static_cast<CURLcode>(code))),
            code == CURLE_COULDNT_CONNECT || code == CURLE_OPERATION_TIMEDOUT || code == CURLE_GOT_NOTHING
                || code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR)
            << code;
    }
}

TEST_F(CS3ErrorJudgementTest, looksAtTheStatusBeforeTheTransfersCode)
{
    EXPECT_FALSE(client().shouldRetryRequest(CCURLError(CURLE_RECV_ERROR, "", "http", 403, "")));
}

TEST_F(CS3ErrorJudgementTest, doesNotRetryErrorsOfTheMultiInterface)
{
    EXPECT_FALSE(client().shouldRetryRequest(CCURLError(CURLM_RECURSIVE_API_CALL, "", "", 0, ""))); // number 8
    EXPECT_FALSE(client().shouldRetryRequest(CCURLError(CURLM_ADDED_ALREADY, "", "", 0, ""))); // number 7, as a refusal
}

TEST_F(CS3ErrorJudgementTest, doesNotRetryOtherErrors)
{
    EXPECT_FALSE(client().shouldRetryRequest(kx::CError("m", "curl", CURLE_COULDNT_CONNECT)));
    EXPECT_FALSE(client().shouldRetryRequest(std::runtime_error("m")));
}

TEST_F(CS3ErrorJudgementTest, slowsDownWhenTheServiceAsksForIt)
{
    EXPECT_TRUE(client().shouldSlowDown(s3Error("SlowDown", 500)));
    EXPECT_FALSE(client().shouldSlowDown(s3Error("InternalError", 503)));
    EXPECT_TRUE(client().shouldSlowDown(httpError(503)));
    EXPECT_FALSE(client().shouldSlowDown(httpError(500)));
    EXPECT_FALSE(client().shouldSlowDown(std::runtime_error("m")));
}

TEST_F(CS3ErrorJudgementTest, tellsWhatDoesNotExist)
{
    EXPECT_TRUE(client().isNotFoundError(httpError(404)));
    EXPECT_TRUE(client().isNotFoundError(s3Error("Whatever", 404)));
    EXPECT_TRUE(client().isNotFoundError(s3Error("NoSuchKey", 0)));
    EXPECT_TRUE(client().isNotFoundError(s3Error("NoSuchBucket", 0)));
    EXPECT_FALSE(client().isNotFoundError(s3Error("AccessDenied", 403)));
    EXPECT_FALSE(client().isNotFoundError(httpError(410)));
    EXPECT_FALSE(client().isNotFoundError(std::runtime_error("m")));
}

class CS3BetterErrorTest : public CS3ClientFixture {
protected:
    /// What is thrown; null when nothing is.
    kx::P<kx::CError> better(std::exception&& error, const std::string& data)
    {
        norla::CS3Client::Buffer buffer;
        buffer.append(reinterpret_cast<const unsigned char*>(data.data()), data.size());
        return support::errorOf([&] { client().tryThrowBetterError(error, buffer); });
    }

    Lines log() const { return m_log.lines(); }

private:
    support::CLogRecorder m_log;
};

TEST_F(CS3BetterErrorTest, isTheServicesWithTheStatus)
{
    const auto error = better(httpError(403), errorDocument("AccessDenied"));
    ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
    EXPECT_EQ(error->getMessage(), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(error->getCode(), 403);
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3BetterErrorTest, needsAnError)
{
    EXPECT_FALSE(better(httpError(403), ""));
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3BetterErrorTest, needsAStatus)
{
    EXPECT_FALSE(better(transferError(CURLE_RECV_ERROR), errorDocument("AccessDenied")));
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3BetterErrorTest, needsATransfersError)
{
    EXPECT_FALSE(better(std::runtime_error("m"), errorDocument("AccessDenied")));
    EXPECT_FALSE(better(s3Error("NoSuchKey", 404), errorDocument("AccessDenied")));
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3BetterErrorTest, isNoneForOtherDataWhichAreLogged)
{
    const std::string text
        = "error: S3 returned an error, but the response data is not a valid S3 error response. {S3ResponseData: ";
    EXPECT_FALSE(better(httpError(500), "Oops \xe4"));
    EXPECT_FALSE(better(httpError(500), "<html/>"));
    EXPECT_FALSE(better(httpError(500), "<Error><Code>Sl"));
    EXPECT_EQ(log(), (Lines{text + "Oops \xc3\xa4}", text + "<html/>}", text + "<Error><Code>Sl}"}));
}

/// performRequest() against a server; all connections are closed after their answer.
class CS3ClientRetryTest : public CS3ClientFixture {
protected:
    static constexpr const char* waiting = " Waiting 100ms and retrying.";

    CS3ClientRetryTest() { client().prepareGetObjectRequest(request(), "bucket", "key", 0, -1); }

    void answers(std::initializer_list<std::string> all)
    {
        for (const std::string& bytes : all)
            answer(bytes);
    }

    kx::P<kx::CError> failure()
    {
        return support::errorOf([this] { client().performRequest(request()); });
    }

    Lines log() const { return m_log.lines(); }

private:
    support::CLogRecorder m_log;
};

TEST_F(CS3ClientRetryTest, countsASuccessAsOneAttempt)
{
    answer(ok("content"));
    EXPECT_EQ(client().performRequest(request()), 1);
    EXPECT_EQ(body(), "content");
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3ClientRetryTest, countsItsAttempts)
{
    answers({answerWith(500, errorDocument("InternalError")), answerWith(500, errorDocument("InternalError")),
        ok("content")});
    EXPECT_EQ(client().performRequest(request()), 3);
    EXPECT_EQ(body(), "content");
}

TEST_F(CS3ClientRetryTest, sendsTheSameBytesAgain)
{
    answers({answerWith(503, ""), ok("")});
    client().performRequest(request());
    EXPECT_EQ(received(0), received(1));
    EXPECT_NE(received(0).find("Authorization: AWS AKID:"), std::string::npos);
}

TEST_F(CS3ClientRetryTest, sendsABodyFromItsStartAgain)
{
    client().preparePutObjectRequest(request(), "bucket", "key", "12345", 5, "");
    server().onConnection().readHead().readBytes(5).send(answerWith(500, ""));
    server().onConnection().readHead().readBytes(5).send(ok(""));
    EXPECT_EQ(client().performRequest(request()), 2);
    EXPECT_TRUE(received(1).ends_with("\r\n\r\n12345"));
}

TEST_F(CS3ClientRetryTest, logsEachServiceErrorWithItsTry)
{
    answers(
        {answerWith(500, errorDocument("InternalError")), answerWith(409, errorDocument("OperationAborted")), ok("")});
    client().performRequest(request());
    EXPECT_EQ(log(),
        (Lines{std::string("info: Received InternalError response from S3 (try 1).") + waiting,
            std::string("info: Received OperationAborted response from S3 (try 2).") + waiting}));
}

TEST_F(CS3ClientRetryTest, logsEachTransferErrorWithItsTry)
{
    server().onConnection().readHead().closeHard();
    answer(ok(""));
    client().performRequest(request());
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("info: Got error during S3 request: Server returned nothing")) << lines[0];
    EXPECT_TRUE(lines[0].ends_with(std::string(" (try 1).") + waiting)) << lines[0];
}

TEST_F(CS3ClientRetryTest, warnsBeforeItRetriesAfterASlowDown)
{
    answers({answerWith(503, errorDocument("SlowDown")), ok("")});
    client().performRequest(request());
    EXPECT_EQ(log(),
        (Lines{"warning: Received slowdown response from S3: Amazon S3 error: Because(SlowDown)",
            std::string("info: Received SlowDown response from S3 (try 1).") + waiting}));
}

TEST_F(CS3ClientRetryTest, warnsAboutA503WithoutADocumentToo)
{
    answers({answerWith(503, "Busy"), ok("")});
    EXPECT_EQ(client().performRequest(request()), 2);
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].ends_with("is not a valid S3 error response. {S3ResponseData: Busy}")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("warning: Received slowdown response from S3: ")) << lines[1];
    EXPECT_TRUE(lines[2].starts_with("info: Got error during S3 request: ")) << lines[2];
}

TEST_F(CS3ClientRetryTest, waitsBeforeEachRetry)
{
    answers({answerWith(500, ""), answerWith(500, ""), ok("")});
    const long long start = kx::CTime::now().getMicroseconds();
    client().performRequest(request());
    EXPECT_GE(kx::CTime::now().getMicroseconds() - start, 2 * 100'000);
}

TEST_F(CS3ClientRetryTest, waitsTheSameHoweverOftenAndWhateverTheReason)
{
    constexpr int failures = 12;
    for (int i = 0; i < failures / 2; ++i)
        answers({answerWith(503, errorDocument("SlowDown")), answerWith(500, "")});
    answer(ok(""));
    support::CWaitCalls calls;
    EXPECT_EQ(client().performRequest(request()), failures + 1);
    EXPECT_EQ(calls.takeWaits(), Lines(failures, "sleep 100"));
}

TEST_F(CS3ClientRetryTest, doesNotWaitWhenItGivesUp)
{
    client().setMaxRetries(1);
    answers({answerWith(503, ""), answerWith(503, errorDocument("SlowDown"))});
    support::CWaitCalls calls;
    EXPECT_TRUE(failure());
    EXPECT_EQ(calls.takeWaits(), Lines{"sleep 100"});
}

TEST_F(CS3ClientRetryTest, warnsOfASlowDownWhenItGivesUpToo)
{
    client().setMaxRetries(0);
    answer(answerWith(503, errorDocument("SlowDown")));
    EXPECT_TRUE(failure());
    EXPECT_EQ(log(),
        (Lines{"warning: Received slowdown response from S3: Amazon S3 error: Because(SlowDown)",
            "error: Received SlowDown response from S3 (try 1). Too many retries. Giving up!: Amazon S3 error: "
            "Because(SlowDown)"}));
}

TEST_F(CS3ClientRetryTest, retriesABadRequestWithoutADocument)
{
    answers({answerWith(400, ""), ok("")});
    EXPECT_EQ(client().performRequest(request()), 2);
}

TEST_F(CS3ClientRetryTest, retriesADocumentOfAnotherKindByItsStatus)
{
    answers({answerWith(500, "<html><body>Sorry</body></html>"), ok("")});
    EXPECT_EQ(client().performRequest(request()), 2);
    EXPECT_NE(log().at(0).find("S3ResponseData: <html><body>Sorry</body></html>"), std::string::npos);
}

TEST_F(CS3ClientRetryTest, retriesACutDocumentByItsStatus)
{
    answers({answerWith(500, errorDocument("AccessDenied").substr(0, 60)), ok("")});
    EXPECT_EQ(client().performRequest(request()), 2);
}

TEST_F(CS3ClientRetryTest, retriesAConnectionThatIsResetBeforeTheAnswer)
{
    server().onConnection().readHead().reset();
    answer(ok("content"));
    EXPECT_EQ(client().performRequest(request()), 2);
    EXPECT_EQ(body(), "content");
}

TEST_F(CS3ClientRetryTest, judgesALostConnectionByTheStatusThatHadCome)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart").reset();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_RECV_ERROR);
    EXPECT_EQ(log(),
        Lines{"error: S3 returned an error, but the response data is not a valid S3 error response. {S3ResponseData: "
              "part}"});
}

TEST_F(CS3ClientRetryTest, doesNotRetryABodyThatIsCutInOrder)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_PARTIAL_FILE);
}

TEST_F(CS3ClientRetryTest, throwsARefusalAtOnceAsTheServiceExplainsIt)
{
    answer(answerWith(403, errorDocument("AccessDenied")));
    const auto error = failure();
    ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
    EXPECT_EQ(error->getMessage(), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(error->getDomain(), "http");
    EXPECT_EQ(error->getCode(), 403);
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3ClientRetryTest, throwsAMissingObjectAtOnce)
{
    answer(answerWith(404, errorDocument("NoSuchKey")));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), 404);
    EXPECT_EQ(error->getProps().get("s3-code"), "NoSuchKey");
    EXPECT_TRUE(client().isNotFoundError(*error));
}

TEST_F(CS3ClientRetryTest, throwsAStatusWithoutADocumentAsItIs)
{
    answer(answerWith(403, ""));
    const auto error = failure();
    ASSERT_TRUE(dynamic_cast<const CCURLError*>(error.get()));
    EXPECT_EQ(error->getProps().get("responseCode"), "403");
}

TEST_F(CS3ClientRetryTest, throwsACertificateFailureAtOnce)
{
    const auto& certificates = support::CTestCertificates::get();
    server().onConnection().startTLS(certificates.serverCertificate(), certificates.serverKey());
    const auto tlsClient = kx::newObj<norla::CS3Client>("AKID", secret, true, host());
    tlsClient->prepareGetObjectRequest(request(), "bucket", "key", 0, -1);
    const auto error = support::errorOf([&] { tlsClient->performRequest(request()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3ClientRetryTest, givesUpAfterTheFirstAttemptWithoutRetries)
{
    client().setMaxRetries(0);
    answer(answerWith(500, errorDocument("InternalError")));
    const auto error = failure();
    ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
    EXPECT_EQ(log(),
        Lines{"error: Received InternalError response from S3 (try 1). Too many retries. Giving up!: Amazon S3 error: "
              "Because(InternalError)"});
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CS3ClientRetryTest, makesOneAttemptMoreThanItHasRetries)
{
    client().setMaxRetries(2);
    answers({answerWith(500, ""), answerWith(500, ""), answerWith(500, "")});
    const auto error = failure();
    ASSERT_TRUE(dynamic_cast<const CCURLError*>(error.get()));
    EXPECT_EQ(server().connectionCount(), 3u);
    ASSERT_EQ(log().size(), 3u);
    EXPECT_NE(log()[2].find("(try 3). Too many retries. Giving up!"), std::string::npos) << log()[2];
}

TEST_F(CS3ClientRetryTest, hasFiftyRetriesUnlessToldOtherwise)
{
    const support::CRefusedPort refused;
    const auto unheard
        = kx::newObj<norla::CS3Client>("AKID", secret, false, "127.0.0.1:" + kx::toString(refused.getPort()));
    unheard->prepareGetObjectRequest(request(), "bucket", "key", 0, -1);
    const auto error = support::errorOf([&] { unheard->performRequest(request()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 51u);
    EXPECT_TRUE(lines[49].ends_with(std::string("(try 50).") + waiting)) << lines[49];
    EXPECT_NE(lines[50].find("(try 51). Too many retries. Giving up!"), std::string::npos) << lines[50];
}

/// Throws what no library would.
class CThrowingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int, int, const norla::CNetRequest::HeaderMap&) override
    {
        throw kx::CError("The disk is full.");
    }
};

TEST_F(CS3ClientRetryTest, throwsTheErrorOfASinkAtOnce)
{
    request().setReceiveDataSink(kx::newObj<CThrowingSink>().get());
    answer(ok("content"));
    EXPECT_EQ(support::messageOf([this] { client().performRequest(request()); }), "The disk is full.");
    EXPECT_EQ(log(), Lines());
}

/// Throws what is no error of the library.
class CThrowingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest*, const kx::CError*) override { throw std::logic_error("not ours"); }
};

TEST_F(CS3ClientRetryTest, passesOnWhatIsNoErrorOfTheLibrary)
{
    request().setDoneListener(kx::newObj<CThrowingListener>().get());
    answer(ok(""));
    EXPECT_THROW(client().performRequest(request()), std::logic_error);
    EXPECT_EQ(server().connectionCount(), 1u);
    EXPECT_EQ(log(), Lines());
}

TEST_F(CS3ClientRetryTest, leavesTheRequestUsable)
{
    answer(answerWith(403, errorDocument("AccessDenied")));
    EXPECT_TRUE(failure());
    expectGoodTransfer();
}

TEST_F(CS3ClientRetryTest, keepsTheSecretToItself)
{
    client().setMaxRetries(1);
    answers({answerWith(500, "no document"), answerWith(503, errorDocument("SlowDown"))});
    const auto error = failure();
    ASSERT_TRUE(error);
    const kx::String signature = sentHeader("Authorization").substr(kx::String("AWS AKID:").size());
    std::string everything = error->what();
    for (const auto& [key, value] : error->getProps().getMap())
        everything += key.toUTF8() + value.toUTF8();
    for (const std::string& line : log())
        everything += line;
    EXPECT_EQ(everything.find(secret), std::string::npos);
    EXPECT_EQ(everything.find(signature.toUTF8()), std::string::npos);
    EXPECT_EQ(received().find(secret), std::string::npos);
}

} // namespace
