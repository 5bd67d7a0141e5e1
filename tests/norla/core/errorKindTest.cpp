#include "norla/core/errorKind.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/CStdExceptionError.h"
#include "kx/files/COutputFile.h"
#include "norla/core/CCURLError.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ios>
#include <new>
#include <system_error>

namespace {

using norla::CCURLError;
using norla::CFailureDetails;
using norla::getErrorKind;
using norla::TransferLimit;
using norla::TransferPhase;
using enum norla::ErrorKind;

norla::ErrorKind ofCode(CURLcode code)
{
    return getErrorKind(CCURLError(code, "", "", 0, ""));
}

norla::ErrorKind ofHTTP(int status)
{
    return getErrorKind(CCURLError(CURLE_HTTP_RETURNED_ERROR, "", "http", status, ""));
}

norla::ErrorKind ofFTP(CURLcode code, const kx::String& reply)
{
    return getErrorKind(
        CCURLError(code, "", "ftp", std::stoi(reply.toUTF8()), "", "", CFailureDetails{.ftpReply = reply}));
}

norla::ErrorKind ofMail(const kx::String& reply, bool isRecipientRefused = false, CURLcode code = CURLE_SEND_ERROR)
{
    return getErrorKind(
        CCURLError(code, "", "smtp", 221, "", reply, CFailureDetails{.isRecipientRefused = isRecipientRefused}));
}

norla::ErrorKind ofTimeout(const CFailureDetails& details)
{
    return getErrorKind(CCURLError(CURLE_OPERATION_TIMEDOUT, "", "", 0, "", "", details));
}

norla::ErrorKind ofStore(const kx::String& code, int status)
{
    return getErrorKind(norla::CS3Error(norla::CS3ErrorResponse(code, "", "", ""), status));
}

TEST(ErrorKindTest, isToldByTheResult)
{
    EXPECT_EQ(ofCode(CURLE_COULDNT_RESOLVE_HOST), NameLookup);
    EXPECT_EQ(ofCode(CURLE_COULDNT_CONNECT), Unreachable);
    EXPECT_EQ(ofCode(CURLE_PEER_FAILED_VERIFICATION), Certificate);
    EXPECT_EQ(ofCode(CURLE_SSL_CONNECT_ERROR), Encryption);
    EXPECT_EQ(ofCode(CURLE_ABORTED_BY_CALLBACK), Cancelled);
    EXPECT_EQ(ofCode(CURLE_URL_MALFORMAT), InvalidArgument);
    EXPECT_EQ(ofCode(CURLE_RECV_ERROR), ConnectionLost);
    EXPECT_EQ(ofCode(CURLE_WRITE_ERROR), Unknown);
    EXPECT_EQ(getErrorKind(CCURLError(CURLM_BAD_HANDLE, "", "", 0, "")), Unknown);
}

TEST(ErrorKindTest, isToldByTheStatusOfHTTP)
{
    EXPECT_EQ(ofHTTP(404), NotFound);
    EXPECT_EQ(ofHTTP(403), Denied);
    EXPECT_EQ(ofHTTP(401), Login);
    EXPECT_EQ(ofHTTP(503), Temporary);
    EXPECT_EQ(ofHTTP(413), TooLarge);
    EXPECT_EQ(ofHTTP(507), Full);
    EXPECT_EQ(ofHTTP(302), Refused);
    EXPECT_EQ(ofHTTP(418), Refused);
    EXPECT_EQ(ofHTTP(101), Protocol);
}

TEST(ErrorKindTest, statusBesideABrokenTransferDoesNotCount)
{
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_PARTIAL_FILE, "", "http", 200, "")), ConnectionLost);
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_RECV_ERROR, "", "http", 404, "")), ConnectionLost);
}

TEST(ErrorKindTest, isToldByTheReplyOfFTP)
{
    EXPECT_EQ(ofFTP(CURLE_REMOTE_FILE_NOT_FOUND, "550 No such file"), NotFound);
    EXPECT_EQ(ofFTP(CURLE_REMOTE_ACCESS_DENIED, "550 Failed to change directory."), NotFound);
    EXPECT_EQ(ofFTP(CURLE_UPLOAD_FAILED, "550 Permission denied."), Denied);
    EXPECT_EQ(ofFTP(CURLE_UPLOAD_FAILED, "553 Prohibited file name"), Denied);
    EXPECT_EQ(ofFTP(CURLE_QUOTE_ERROR, "550 Directory not empty"), Refused);
    EXPECT_EQ(ofFTP(CURLE_QUOTE_ERROR, "550 File exists"), Refused);
    EXPECT_EQ(ofFTP(CURLE_QUOTE_ERROR, "500 what?"), Refused);
    EXPECT_EQ(ofFTP(CURLE_UPLOAD_FAILED, "452 No space"), Full);
    EXPECT_EQ(ofFTP(CURLE_UPLOAD_FAILED, "450 Busy"), Temporary);
    EXPECT_EQ(ofFTP(CURLE_LOGIN_DENIED, "530 Who?"), Login);
    EXPECT_EQ(ofFTP(CURLE_OPERATION_TIMEDOUT, "421 Too many users"), Temporary);
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_REMOTE_FILE_NOT_FOUND, "", "ftp", 0, "")), NotFound);
}

TEST(ErrorKindTest, isToldByTheReplyOfAMailServer)
{
    EXPECT_EQ(ofMail("550 5.1.1 no such user", true), RecipientRefused);
    EXPECT_EQ(ofMail("550 5.1.1 no such user"), Refused);
    EXPECT_EQ(ofMail("451 4.7.1 greylisted", true), Temporary);
    EXPECT_EQ(ofMail("421 bye", false, CURLE_WEIRD_SERVER_REPLY), Temporary);
    EXPECT_EQ(ofMail("452 4.2.2 mailbox full", true), Full);
    EXPECT_EQ(ofMail("552 5.2.2 mailbox full", true), Full);
    EXPECT_EQ(ofMail("552 5.3.4 too big"), TooLarge);
    EXPECT_EQ(ofMail("552 message size exceeds fixed maximum"), TooLarge);
    EXPECT_EQ(ofMail("530 5.7.0 Must issue a STARTTLS command first"), Encryption);
    EXPECT_EQ(ofMail("530 5.7.0 Authentication required"), Login);
    EXPECT_EQ(ofMail("535 5.7.8 no", false, CURLE_LOGIN_DENIED), Login);
    EXPECT_EQ(ofMail("454 4.7.0 later", false, CURLE_LOGIN_DENIED), Temporary);
    EXPECT_EQ(ofMail(""), ConnectionLost);
}

TEST(ErrorKindTest, isToldByTheLimitOfTime)
{
    EXPECT_EQ(ofTimeout({.limit = TransferLimit::Connect}), ConnectTimeout);
    EXPECT_EQ(ofTimeout({.limit = TransferLimit::Inactivity}), InactivityTimeout);
    EXPECT_EQ(ofTimeout({.limit = TransferLimit::Total}), TotalTimeout);
    EXPECT_EQ(ofTimeout({.phase = TransferPhase::Encryption}), ConnectTimeout);
    EXPECT_EQ(ofTimeout({.phase = TransferPhase::Receiving}), InactivityTimeout);
}

TEST(ErrorKindTest, isToldByTheProxyThatRefusesATunnel)
{
    const auto of = [](int status) {
        return getErrorKind(CCURLError(CURLE_RECV_ERROR, "", "", 0, "", "", CFailureDetails{.proxyStatus = status}));
    };
    EXPECT_EQ(of(407), Login);
    EXPECT_EQ(of(403), Denied);
    EXPECT_EQ(of(502), Unreachable);
    EXPECT_EQ(of(200), ConnectionLost);
}

TEST(ErrorKindTest, isToldByTheStore)
{
    EXPECT_EQ(ofStore("NoSuchKey", 404), NotFound);
    EXPECT_EQ(ofStore("SignatureDoesNotMatch", 403), Login);
    EXPECT_EQ(ofStore("AccessDenied", 403), Denied);
    EXPECT_EQ(ofStore("SlowDown", 503), Temporary);
    EXPECT_EQ(ofStore("InternalError", 0), Temporary);
    EXPECT_EQ(ofStore("Strange", 409), Refused);
    EXPECT_EQ(ofStore("Strange", 507), Full);
}

TEST(ErrorKindTest, isToldByTheSystem)
{
    EXPECT_EQ(getErrorKind(std::system_error(ENOSPC, std::generic_category())), Full);
    EXPECT_EQ(getErrorKind(std::system_error(EACCES, std::system_category())), Denied);
    EXPECT_EQ(getErrorKind(std::system_error(EXDEV, std::generic_category())), Unknown);
    EXPECT_EQ(getErrorKind(std::ios_base::failure("stream")), Unknown);
}

TEST(ErrorKindTest, isToldByTheFileThatCannotBeWritten)
{
    const auto error
        = support::errorOf([] { kx::COutputFile(kx::COutputFile::Path::fromBytes("/nowhere/to/be/found")); });
    ASSERT_TRUE(error);
    EXPECT_EQ(getErrorKind(*error), NotFound);
}

TEST(ErrorKindTest, isToldByTheClass)
{
    EXPECT_EQ(getErrorKind(kx::CInvalidArgError("a", "f")), InvalidArgument);
    EXPECT_EQ(getErrorKind(std::bad_alloc()), OutOfMemory);
    EXPECT_EQ(getErrorKind(kx::CStdExceptionError(std::bad_alloc())), OutOfMemory);
    EXPECT_EQ(getErrorKind(std::runtime_error("what")), Unknown);
}

TEST(ErrorKindTest, isToldByTheCauseOfAnErrorThatSaysNothing)
{
    const kx::PC<kx::CError> cause = kx::newObj<CCURLError>(CURLE_COULDNT_CONNECT, "", "", 0, "");
    EXPECT_EQ(getErrorKind(kx::CError("m", "", -1, kx::CProps(), cause)), Unreachable);
    EXPECT_EQ(getErrorKind(kx::CError("m")), Unknown);
}

} // namespace
