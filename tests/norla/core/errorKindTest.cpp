#include "norla/core/errorKind.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/CStdExceptionError.h"
#include "kx/files/COutputFile.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ios>
#include <map>
#include <new>
#include <set>
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

using Kinds = std::map<int, norla::ErrorKind>;

/// What these tell, and for all others of them what the test says.
template <typename TUsual>
norla::ErrorKind expectedOf(const Kinds& kinds, int status, TUsual usual)
{
    const auto found = kinds.find(status);
    return found == kinds.end() ? usual(status) : found->second;
}

constexpr int firstStatus = 100;
constexpr int lastStatus = 599;

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

TEST(ErrorKindTest, isToldByEveryStatusOfHTTP)
{
    const Kinds kinds{{401, Login}, {403, Denied}, {404, NotFound}, {407, Login}, {408, Temporary}, {410, NotFound},
        {413, TooLarge}, {414, TooLarge}, {425, Temporary}, {429, Temporary}, {431, TooLarge}, {451, Denied},
        {500, Temporary}, {502, Temporary}, {503, Temporary}, {504, Temporary}, {507, Full}};
    for (int status = firstStatus; status <= lastStatus; ++status)
        EXPECT_EQ(ofHTTP(status), expectedOf(kinds, status, [](int other) { return other < 300 ? Protocol : Refused; }))
            << status;
}

TEST(ErrorKindTest, isToldByEveryStatusOfFTP)
{
    const Kinds kinds{{430, Login}, {452, Full}, {522, Encryption}, {530, Login}, {532, Login}, {533, Encryption},
        {534, Encryption}, {536, Encryption}, {550, NotFound}, {552, Full}, {553, Denied}};
    const auto usual = [](int other) { return other < 400 ? Denied : other < 500 ? Temporary : Refused; };
    for (int status = firstStatus; status <= lastStatus; ++status)
        EXPECT_EQ(ofFTP(CURLE_REMOTE_ACCESS_DENIED, kx::toString(status)), expectedOf(kinds, status, usual)) << status;
}

TEST(ErrorKindTest, isToldByEveryStatusOfAMailServer)
{
    const Kinds kinds{
        {452, Full}, {523, TooLarge}, {530, Login}, {534, Login}, {535, Login}, {538, Encryption}, {552, TooLarge}};
    for (int status = firstStatus; status <= lastStatus; ++status)
        EXPECT_EQ(ofMail(kx::toString(status)), expectedOf(kinds, status, [](int other) {
            return other < 500 ? Temporary : Refused;
        })) << status;
}

TEST(ErrorKindTest, isToldByWhatAMailServerSaysBesidesItsStatus)
{
    EXPECT_EQ(ofMail("550 5.2.2"), Full);
    EXPECT_EQ(ofMail("550 5.2.3"), TooLarge);
    EXPECT_EQ(ofMail("450 4.3.1"), Full);
    EXPECT_EQ(ofMail("550 5.3.4"), TooLarge);
    EXPECT_EQ(ofMail("550 5.1.1 2.2.2"), Refused);
}

TEST(ErrorKindTest, isAMistakeOfTheServerWhereItRedirectsToAnAddressThatIsNone)
{
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_URL_MALFORMAT, "", "http", 302, "")), Protocol);
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_URL_MALFORMAT, "", "http", 200, "")), InvalidArgument);
}

TEST(ErrorKindTest, isAMistakeOfTheServerWhereItRedirectsToAnUnknownProtocol)
{
    const auto of = [](const char* domain, int status) {
        return getErrorKind(CCURLError(CURLE_UNSUPPORTED_PROTOCOL, "", kx::String::fromLatin1(domain), status, ""));
    };
    EXPECT_EQ(of("http", 299), InvalidArgument);
    EXPECT_EQ(of("http", 300), Protocol);
    EXPECT_EQ(of("http", 399), Protocol);
    EXPECT_EQ(of("http", 400), InvalidArgument);
    EXPECT_EQ(of("ftp", 350), InvalidArgument);
}

TEST(ErrorKindTest, statusBesideABrokenTransferDoesNotCount)
{
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_PARTIAL_FILE, "", "http", 200, "")), ConnectionLost);
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_RECV_ERROR, "", "http", 404, "")), ConnectionLost);
}

TEST(ErrorKindTest, isToldByTheReplyOfFTP)
{
    EXPECT_EQ(ofFTP(CURLE_REMOTE_FILE_NOT_FOUND, "550 No such file"), NotFound);
    EXPECT_EQ(ofFTP(CURLE_REMOTE_FILE_NOT_FOUND, "550 permits.txt: No such file or directory"), NotFound);
    EXPECT_EQ(ofFTP(CURLE_REMOTE_FILE_NOT_FOUND, "550 Permission denied or not found"), Denied);
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

TEST(ErrorKindTest, isToldByThePhaseWithoutALimitOfTime)
{
    const std::set connecting{
        TransferPhase::NameLookup, TransferPhase::Connect, TransferPhase::Encryption, TransferPhase::Login};
    for (const TransferPhase phase :
        {TransferPhase::Unknown, TransferPhase::NameLookup, TransferPhase::Connect, TransferPhase::Encryption,
            TransferPhase::Login, TransferPhase::Sending, TransferPhase::Waiting, TransferPhase::Receiving})
        EXPECT_EQ(ofTimeout({.phase = phase}), connecting.contains(phase) ? ConnectTimeout : InactivityTimeout)
            << static_cast<int>(phase);
}

TEST(ErrorKindTest, isToldByTheLimitOfTimeWhateverTheServerSays)
{
    const CFailureDetails details{.limit = TransferLimit::Total, .ftpReply = "421 Too many users"};
    EXPECT_EQ(getErrorKind(CCURLError(CURLE_OPERATION_TIMEDOUT, "", "ftp", 421, "", "", details)), TotalTimeout);
}

TEST(ErrorKindTest, isToldByTheProxyThatRefusesATunnel)
{
    const auto of = [](int status) {
        return getErrorKind(CCURLError(CURLE_RECV_ERROR, "", "", 0, "", "", CFailureDetails{.proxyStatus = status}));
    };
    EXPECT_EQ(of(407), Login);
    EXPECT_EQ(of(403), Denied);
    EXPECT_EQ(of(502), Unreachable);
    EXPECT_EQ(of(300), Unreachable);
    EXPECT_EQ(of(299), ConnectionLost);
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
