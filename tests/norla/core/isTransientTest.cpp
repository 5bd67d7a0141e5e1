#include "norla/core/isTransient.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"

#include <gtest/gtest.h>

#include <array>
#include <set>

namespace {

using norla::CCURLError;
using norla::CFailureDetails;
using norla::isTransient;

bool isTransientReply(CURLcode code, const kx::String& reply)
{
    return isTransient(CCURLError(
        code, "", "ftp", std::stoi(reply.substr(0, 3).toUTF8()), "", "", CFailureDetails{.ftpReply = reply}));
}

bool ofMail(CURLcode code, const kx::String& reply)
{
    return isTransient(CCURLError(code, "", "smtp", 221, "", reply));
}

TEST(IsTransientTest, isToldByTheResult)
{
    const std::set<int> transient = {CURLE_COULDNT_RESOLVE_PROXY, CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_CONNECT,
        CURLE_FTP_CANT_GET_HOST, CURLE_FTP_ACCEPT_TIMEOUT, CURLE_FTP_ACCEPT_FAILED, CURLE_HTTP2, CURLE_PARTIAL_FILE,
        CURLE_OPERATION_TIMEDOUT, CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR, CURLE_HTTP2_STREAM,
        CURLE_HTTP3, CURLE_QUIC_CONNECT_ERROR, CURLE_PROXY};
    for (int code = CURLE_UNSUPPORTED_PROTOCOL; code < CURL_LAST; ++code)
        EXPECT_EQ(isTransient(CCURLError(static_cast<CURLcode>(code), "", "", 0, "")), transient.contains(code))
            << code;
}

TEST(IsTransientTest, isToldByTheStatusOfHTTP)
{
    const std::set<int> transient = {408, 425, 429, 500, 502, 503, 504};
    for (int status = 100; status <= 599; ++status)
        EXPECT_EQ(
            isTransient(CCURLError(CURLE_HTTP_RETURNED_ERROR, "", "http", status, "")), transient.contains(status))
            << status;
}

TEST(IsTransientTest, everyFTPStatusBelow500ButALoginAsksToComeAgain)
{
    for (int status = 400; status <= 599; ++status)
        EXPECT_EQ(isTransientReply(CURLE_UPLOAD_FAILED, kx::toString(status)), status < 500 && status != 430) << status;
}

TEST(IsTransientTest, everyMailStatusBelow500AsksToComeAgain)
{
    for (int status = 400; status <= 599; ++status)
        EXPECT_EQ(ofMail(CURLE_SEND_ERROR, kx::toString(status)), status < 500) << status;
}

TEST(IsTransientTest, aMailServerMaySayMoreThanItsStatus)
{
    EXPECT_TRUE(ofMail(CURLE_SEND_ERROR, "452 4.2.2 mailbox full"));
    EXPECT_TRUE(ofMail(CURLE_SEND_ERROR, "452 4.3.4 too large for now"));
    EXPECT_TRUE(ofMail(CURLE_LOGIN_DENIED, "454 4.7.0 later"));
    EXPECT_FALSE(ofMail(CURLE_LOGIN_DENIED, "535 5.7.8 no"));
    EXPECT_FALSE(ofMail(CURLE_SEND_ERROR, "552 5.2.2 mailbox full"));
}

TEST(IsTransientTest, encryptionThatIsRefusedForNowMayBeThereLater)
{
    EXPECT_TRUE(ofMail(CURLE_USE_SSL_FAILED, "454 4.7.0 TLS not available"));
    EXPECT_FALSE(ofMail(CURLE_USE_SSL_FAILED, "502 5.5.1 what?"));
    EXPECT_TRUE(isTransientReply(CURLE_USE_SSL_FAILED, "431 not now"));
    EXPECT_FALSE(isTransientReply(CURLE_USE_SSL_FAILED, "534 no"));
}

TEST(IsTransientTest, whatTheServerHasSaidBeforeTheProgramEndedItDoesNotCount)
{
    EXPECT_FALSE(ofMail(CURLE_ABORTED_BY_CALLBACK, "452 full"));
    EXPECT_FALSE(isTransientReply(CURLE_ABORTED_BY_CALLBACK, "421 bye"));
    EXPECT_FALSE(ofMail(CURLE_SSL_CONNECT_ERROR, "452 full"));
}

TEST(IsTransientTest, handshakeThatBrokeOffIsToldFromOneThatFailed)
{
    const auto of = [](const kx::String& message) {
        return isTransient(CCURLError(CURLE_SSL_CONNECT_ERROR, message, "", 0, ""));
    };
    EXPECT_TRUE(of("OpenSSL SSL_connect: Connection reset by peer in connection to localhost:1 "));
    EXPECT_TRUE(of("Recv failure: Connection reset by peer"));
    EXPECT_TRUE(of("Send failure: Broken pipe"));
    EXPECT_TRUE(of("error:0A000126:SSL routines::unexpected eof while reading"));
    EXPECT_FALSE(of("error:0A000410:SSL routines::sslv3 alert handshake failure"));
}

TEST(IsTransientTest, isToldByTheStore)
{
    const auto of = [](const kx::String& code, int status) {
        return isTransient(norla::CS3Error(norla::CS3ErrorResponse(code, "", "", ""), status));
    };
    EXPECT_TRUE(of("SlowDown", 503));
    EXPECT_FALSE(of("NoSuchKey", 404));
    EXPECT_FALSE(of("QuotaExceeded", 507));
}

TEST(IsTransientTest, isToldByTheCauseOfAnErrorThatSaysNothing)
{
    const auto of = [](CURLcode code) {
        const kx::PC<kx::CError> cause = kx::newObj<CCURLError>(code, "", "", 0, "");
        return isTransient(kx::CError("m", "", -1, kx::CProps(), cause));
    };
    EXPECT_TRUE(of(CURLE_COULDNT_CONNECT));
    EXPECT_TRUE(of(CURLE_HTTP2_STREAM));
    EXPECT_FALSE(of(CURLE_PEER_FAILED_VERIFICATION));
}

TEST(IsTransientTest, otherErrorsAreNot)
{
    EXPECT_FALSE(isTransient(kx::CError("m")));
    EXPECT_FALSE(isTransient(kx::CInvalidArgError("a", "f")));
    EXPECT_FALSE(isTransient(std::bad_alloc()));
    EXPECT_FALSE(isTransient(CCURLError(CURLM_BAD_HANDLE, "", "", 0, "")));
}

} // namespace
