#include "norla/core/CCURLError.h"

#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

TEST(CCURLErrorTest, saysWhatLibcurlSaysOfTheCode)
{
    const norla::CCURLError error(CURLE_COULDNT_CONNECT, "", "", -1, "");
    EXPECT_EQ(error.getMessage().toUTF8(), support::libcurlSays("Couldn't connect to server"));
    EXPECT_EQ(error.getDomain(), "curl");
    EXPECT_EQ(error.getCode(), 7);
    EXPECT_EQ(error.getProps().getMap(), Map());
    EXPECT_EQ(error.getCause(), nullptr);
}

TEST(CCURLErrorTest, appendsTheMessage)
{
    const norla::CCURLError error(CURLE_COULDNT_CONNECT, "to host h", "", -1, "");
    EXPECT_EQ(error.getMessage().toUTF8(), support::libcurlSays("Couldn't connect to server: to host h"));
}

TEST(CCURLErrorTest, appendsTheResponseCode)
{
    const norla::CCURLError error(CURLE_HTTP_RETURNED_ERROR, "", "http", 404, "Not here");
    EXPECT_EQ(error.getMessage(), "HTTP response code said error (response code: http 404)");
    EXPECT_EQ(error.getProps().getMap(),
        (Map{{"responseCode", "404"}, {"responseCodeDomain", "http"}, {"serverMessage", "Not here"}}));
}

TEST(CCURLErrorTest, tellsAMailServersRefusal)
{
    const norla::CCURLError error(CURLE_SEND_ERROR, "m", "smtp", 550, "221 Bye", "550-no\n550 such");
    EXPECT_EQ(error.getMessage(), "Failed sending data to the peer: m (response code: smtp 550)");
    EXPECT_EQ(error.getProps().getMap(),
        (Map{{"responseCode", "550"}, {"responseCodeDomain", "smtp"}, {"serverMessage", "221 Bye"}}));
    EXPECT_EQ(error.getServerReply(), "550-no\n550 such");
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error.clone()).getServerReply(), "550-no\n550 such");
    EXPECT_EQ(norla::CCURLError(CURLE_SEND_ERROR, "m", "smtp", 550, "m").getServerReply(), "");
}

TEST(CCURLErrorTest, tellsWhereTheTransferWasInItsDetailsAlone)
{
    const norla::CCURLError error(CURLE_COULDNT_CONNECT, "m", "", 0, "", "",
        {.phase = norla::TransferPhase::Connect, .host = "h", .path = "/p", .address = "a"});
    EXPECT_EQ(error.getMessage().toUTF8(), support::libcurlSays("Couldn't connect to server: m"));
    EXPECT_EQ(error.getProps().getMap(), Map());
    EXPECT_EQ(error.getDetails().phase, norla::TransferPhase::Connect);
    EXPECT_EQ(error.getDetails().host, "h");
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error.clone()).getDetails().path, "/p");
    EXPECT_EQ(norla::CCURLError(CURLE_COULDNT_CONNECT, "m", "", 0, "").getDetails().host, "");
}

TEST(CCURLErrorTest, leavesOutAResponseCodeOfZero)
{
    const norla::CCURLError error(CURLE_OPERATION_TIMEDOUT, "m", "http", 0, "");
    EXPECT_EQ(error.getMessage(), "Timeout was reached: m");
    EXPECT_EQ(error.getProps().getMap(), (Map{{"responseCodeDomain", "http"}}));
}

TEST(CCURLErrorTest, hasItsOwnDomainForTheMultiInterface)
{
    const norla::CCURLError error(CURLM_BAD_HANDLE, "m", "ftp", 550, "no");
    EXPECT_EQ(error.getMessage(), "Invalid multi handle: m (response code: ftp 550)");
    EXPECT_EQ(error.getDomain(), "curlm");
    EXPECT_EQ(error.getCode(), CURLM_BAD_HANDLE);
    EXPECT_EQ(error.getProps().get("serverMessage"), "no");
}

TEST(CCURLErrorTest, isReadableForACodeThatLibcurlDoesNotName)
{
    support::CCurlCalls calls;
    calls.fail("curl_easy_strerror");
    EXPECT_EQ(
        norla::CCURLError(CURLE_COULDNT_CONNECT, "m", "", -1, "").getMessage(), "invalid CURL easy error code: m");
}

TEST(CCURLErrorTest, isReadableForAMultiCodeThatLibcurlDoesNotName)
{
    support::CCurlCalls calls;
    calls.fail("curl_multi_strerror");
    EXPECT_EQ(norla::CCURLError(CURLM_BAD_HANDLE, "m", "", -1, "").getMessage(), "invalid CURL multi error code: m");
}

TEST(CCURLErrorTest, isCloned)
{
    const norla::CCURLError error(CURLE_HTTP_RETURNED_ERROR, "m", "http", 404, "s");
    const auto clone = error.clone();
    EXPECT_NE(dynamic_cast<norla::CCURLError*>(clone.get()), nullptr);
    EXPECT_EQ(clone->getMessage(), error.getMessage());
    EXPECT_EQ(clone->getProps().getMap(), error.getProps().getMap());
}

TEST(CCURLErrorTest, throwsACopyOfItsOwnClass)
{
    const norla::CCURLError error(CURLE_HTTP_RETURNED_ERROR, "m", "http", 404, "s");
    EXPECT_THROW(error.throwClone(), norla::CCURLError);
}

} // namespace
