#include "norla/core/errorKind.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/CStdExceptionError.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>

namespace norla {

namespace {

using enum ErrorKind;

template <typename TKey>
struct TRow {
    TKey key;
    ErrorKind kind;
};

template <typename TKey, typename TRows>
std::optional<ErrorKind> lookUp(const TRows& rows, const TKey& key)
{
    const auto found = std::find_if(rows.begin(), rows.end(), [&key](const auto& row) { return row.key == key; });
    return found == rows.end() ? std::nullopt : std::optional(found->kind);
}

/// Where the result alone says it. Of what is not here, the server's status does.
constexpr auto results = std::to_array<TRow<int>>({
    {CURLE_UNSUPPORTED_PROTOCOL, InvalidArgument},
    {CURLE_URL_MALFORMAT, InvalidArgument},
    {CURLE_NOT_BUILT_IN, InvalidArgument},
    {CURLE_COULDNT_RESOLVE_PROXY, NameLookup},
    {CURLE_COULDNT_RESOLVE_HOST, NameLookup},
    {CURLE_COULDNT_CONNECT, Unreachable},
    {CURLE_FTP_CANT_GET_HOST, NameLookup},
    {CURLE_FTP_ACCEPT_TIMEOUT, ConnectTimeout},
    {CURLE_PARTIAL_FILE, ConnectionLost},
    {CURLE_OUT_OF_MEMORY, OutOfMemory},
    {CURLE_SSL_CONNECT_ERROR, Encryption},
    {CURLE_FILE_COULDNT_READ_FILE, NotFound},
    {CURLE_ABORTED_BY_CALLBACK, Cancelled},
    {CURLE_BAD_FUNCTION_ARGUMENT, InvalidArgument},
    {CURLE_INTERFACE_FAILED, InvalidArgument},
    {CURLE_TOO_MANY_REDIRECTS, Protocol},
    {CURLE_UNKNOWN_OPTION, InvalidArgument},
    {CURLE_SETOPT_OPTION_SYNTAX, InvalidArgument},
    {CURLE_GOT_NOTHING, ConnectionLost},
    {CURLE_SSL_CERTPROBLEM, Certificate},
    {CURLE_SSL_CIPHER, Encryption},
    {CURLE_PEER_FAILED_VERIFICATION, Certificate},
    {CURLE_BAD_CONTENT_ENCODING, Protocol},
    {CURLE_FILESIZE_EXCEEDED, TooLarge},
    {CURLE_USE_SSL_FAILED, Encryption},
    {CURLE_REMOTE_DISK_FULL, Full},
    {CURLE_SSL_CACERT_BADFILE, Certificate},
    {CURLE_SSL_CRL_BADFILE, Certificate},
    {CURLE_SSL_ISSUER_ERROR, Certificate},
    {CURLE_SSL_PINNEDPUBKEYNOTMATCH, Certificate},
    {CURLE_SSL_INVALIDCERTSTATUS, Certificate},
    {CURLE_SSL_CLIENTCERT, Certificate},
    {CURLE_AUTH_ERROR, Login},
});

/// Where the server's status says nothing either.
constexpr auto lastResults = std::to_array<TRow<int>>({
    {CURLE_LOGIN_DENIED, Login},
    {CURLE_REMOTE_ACCESS_DENIED, Denied},
    {CURLE_REMOTE_FILE_NOT_FOUND, NotFound},
    {CURLE_FTP_COULDNT_RETR_FILE, NotFound},
    {CURLE_REMOTE_FILE_EXISTS, Refused},
    {CURLE_QUOTE_ERROR, Refused},
    {CURLE_UPLOAD_FAILED, Refused},
    {CURLE_HTTP_RETURNED_ERROR, Refused},
    {CURLE_PROXY, Unreachable},
    {CURLE_SEND_ERROR, ConnectionLost},
    {CURLE_RECV_ERROR, ConnectionLost},
    {CURLE_HTTP2, Protocol},
    {CURLE_HTTP2_STREAM, Protocol},
    {CURLE_HTTP3, Protocol},
    {CURLE_QUIC_CONNECT_ERROR, Unreachable},
    {CURLE_SSH, Protocol},
    {CURLE_WEIRD_SERVER_REPLY, Protocol},
    {CURLE_FTP_WEIRD_PASS_REPLY, Protocol},
    {CURLE_FTP_WEIRD_PASV_REPLY, Protocol},
    {CURLE_FTP_WEIRD_227_FORMAT, Protocol},
    {CURLE_FTP_ACCEPT_FAILED, Unreachable},
    {CURLE_FTP_PORT_FAILED, Protocol},
    {CURLE_FTP_COULDNT_SET_TYPE, Protocol},
    {CURLE_FTP_COULDNT_USE_REST, Refused},
    {CURLE_FTP_BAD_FILE_LIST, Protocol},
    {CURLE_RANGE_ERROR, Refused},
    {CURLE_BAD_DOWNLOAD_RESUME, Refused},
    {CURLE_CHUNK_FAILED, Cancelled},
});

/// RFC 9110 section 15.5 and 15.6, RFC 6585, RFC 4918 section 11.5; of others their hundred says it.
constexpr auto httpStatuses = std::to_array<TRow<int>>({
    {401, Login},
    {403, Denied},
    {404, NotFound},
    {407, Login},
    {408, Temporary},
    {410, NotFound},
    {413, TooLarge},
    {414, TooLarge},
    {425, Temporary},
    {429, Temporary},
    {431, TooLarge},
    {451, Denied},
    {500, Temporary},
    {502, Temporary},
    {503, Temporary},
    {504, Temporary},
    {507, Full},
});

/// RFC 959 section 4.2.1 and RFC 4217 section 10.
constexpr auto ftpStatuses = std::to_array<TRow<int>>({
    {430, Login},
    {452, Full},
    {522, Encryption},
    {530, Login},
    {532, Login},
    {533, Encryption},
    {534, Encryption},
    {536, Encryption},
    {552, Full},
    {553, Denied},
});

/// RFC 5321 section 4.2.3 and RFC 4954 section 6.
constexpr auto mailStatuses = std::to_array<TRow<int>>({
    {452, Full},
    {523, TooLarge},
    {530, Login},
    {534, Login},
    {535, Login},
    {538, Encryption},
    {552, TooLarge},
});

/// RFC 3463: what the mail server means where its status has several meanings.
constexpr auto mailDetails = std::to_array<TRow<std::string_view>>({
    {".2.2", Full},
    {".2.3", TooLarge},
    {".3.1", Full},
    {".3.4", TooLarge},
});

/// What S3 stores say in words, where their status has several meanings.
constexpr auto s3Codes = std::to_array<TRow<std::string_view>>({
    {"AccessDenied", Denied},
    {"EntityTooLarge", TooLarge},
    {"ExpiredToken", Login},
    {"InternalError", Temporary},
    {"InvalidAccessKeyId", Login},
    {"InvalidToken", Login},
    {"NoSuchBucket", NotFound},
    {"NoSuchKey", NotFound},
    {"QuotaExceeded", Full},
    {"RequestTimeTooSkewed", Login},
    {"RequestTimeout", Temporary},
    {"SignatureDoesNotMatch", Login},
    {"SlowDown", Temporary},
});

constexpr auto systemErrors = std::to_array<TRow<int>>({
    {EACCES, Denied},
    {ECANCELED, Cancelled},
    {EDQUOT, Full},
    {EFBIG, TooLarge},
    {EINVAL, InvalidArgument},
    {ENOENT, NotFound},
    {ENOMEM, OutOfMemory},
    {ENOSPC, Full},
    {ENOTDIR, NotFound},
    {EPERM, Denied},
    {EROFS, Denied},
});

bool contains(const kx::String& text, const char* word)
{
    return text.toLower().find(kx::String::fromLatin1(word)) != kx::String::npos;
}

int statusOf(const kx::String& text)
{
    try {
        return static_cast<int>(kx::parseInt64(text, false));
    } catch (const kx::CError&) {
        return 0;
    }
}

ErrorKind kindOfHTTP(int status)
{
    if (const auto kind = lookUp(httpStatuses, status))
        return *kind;
    return status >= 300 ? Refused : Protocol;
}

/// A 550 has every meaning (RFC 959 section 4.2.1).
ErrorKind kindOfMissingFile(const kx::String& reply)
{
    if (contains(reply, "no such file or directory")) // whatever the name beside it sounds like
        return NotFound;
    if (contains(reply, "denied") || contains(reply, "permi") || contains(reply, "prohibited")
        || contains(reply, "forbidden"))
        return Denied;
    if (contains(reply, "quota") || contains(reply, "no space"))
        return Full;
    return contains(reply, "exists") || contains(reply, "not empty") ? Refused : NotFound;
}

std::optional<ErrorKind> kindOfFTP(int status, const kx::String& reply)
{
    constexpr int fileUnavailable = 550;
    if (status == fileUnavailable)
        return kindOfMissingFile(reply);
    if (const auto kind = lookUp(ftpStatuses, status))
        return kind;
    if (status >= 400 && status < 500)
        return Temporary;
    return status >= 500 ? std::optional(Refused) : std::nullopt;
}

std::optional<ErrorKind> kindOfMail(const kx::String& reply, bool isRecipientRefused)
{
    constexpr size_t statusSize = 3;
    const int status = statusOf(reply.substr(0, statusSize));
    if (status == 0)
        return std::nullopt;
    const std::string detail = reply.substr(std::min(reply.size(), statusSize + 2), 4).toUTF8(); // behind "552 5"
    if (const auto kind = lookUp(mailDetails, std::string_view(detail)))
        return kind;
    if (contains(reply, "starttls"))
        return Encryption;
    if (const auto kind = lookUp(mailStatuses, status))
        return kind;
    if (status < 500)
        return Temporary;
    return isRecipientRefused ? RecipientRefused : Refused;
}

ErrorKind kindOfTimeout(const CFailureDetails& details)
{
    switch (details.limit) {
    case TransferLimit::Connect:
        return ConnectTimeout;
    case TransferLimit::Inactivity:
        return InactivityTimeout;
    case TransferLimit::Total:
        return TotalTimeout;
    default:
        break;
    }
    const bool isConnecting = details.phase == TransferPhase::NameLookup || details.phase == TransferPhase::Connect
        || details.phase == TransferPhase::Encryption || details.phase == TransferPhase::Login;
    return isConnecting ? ConnectTimeout : InactivityTimeout;
}

std::optional<ErrorKind> kindOfStatus(const CCURLError& error)
{
    const kx::String domain = error.getProps().get("responseCodeDomain");
    const int status = statusOf(error.getProps().get("responseCode"));
    const CFailureDetails& details = error.getDetails();
    if (domain == "http" && error.getCode() == CURLE_HTTP_RETURNED_ERROR)
        return kindOfHTTP(status);
    if (domain == "ftp")
        return kindOfFTP(status, details.ftpReply);
    if (domain == "smtp")
        return kindOfMail(error.getServerReply(), details.isRecipientRefused);
    return std::nullopt;
}

/// The proxy has refused a tunnel.
std::optional<ErrorKind> kindOfProxy(const CFailureDetails& details)
{
    if (details.proxyStatus < 300)
        return std::nullopt;
    const ErrorKind kind = kindOfHTTP(details.proxyStatus);
    return kind == Login || kind == Denied ? kind : Unreachable;
}

/// The URL of the call was well, until the server led elsewhere.
bool isRedirect(const CCURLError& error)
{
    const int status = statusOf(error.getProps().get("responseCode"));
    return error.getProps().get("responseCodeDomain") == "http" && status >= 300 && status <= 399;
}

ErrorKind kindOfTransfer(const CCURLError& error)
{
    const int code = static_cast<int>(error.getCode());
    const auto status = kindOfStatus(error);
    if (code == CURLE_OPERATION_TIMEDOUT)
        return error.getDetails().limit == TransferLimit::None && status == Temporary
            ? Temporary
            : kindOfTimeout(error.getDetails());
    if ((code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT) && isRedirect(error))
        return Protocol;
    if (const auto kind = lookUp(results, code))
        return *kind;
    if (const auto proxy = kindOfProxy(error.getDetails()))
        return *proxy;
    if (status)
        return *status;
    return lookUp(lastResults, code).value_or(Unknown);
}

/// What an S3 store explains.
ErrorKind kindOfStore(const kx::CError& error)
{
    const std::string code = error.getProps().get("s3-code").toUTF8();
    return lookUp(s3Codes, std::string_view(code)).value_or(kindOfHTTP(static_cast<int>(error.getCode())));
}

ErrorKind kindOfSystem(int number)
{
    return lookUp(systemErrors, number).value_or(Unknown);
}

ErrorKind kindOfCause(const kx::CError& error)
{
    const kx::PC<kx::CError> cause = error.getCause();
    return cause ? getErrorKind(*cause) : Unknown;
}

ErrorKind kindOf(const kx::CError& error)
{
    if (const auto* const transfer = dynamic_cast<const CCURLError*>(&error))
        return error.getDomain() == "curl" ? kindOfTransfer(*transfer) : Unknown;
    if (dynamic_cast<const kx::CInvalidArgError*>(&error))
        return InvalidArgument;
    if (dynamic_cast<const kx::CStdExceptionError*>(&error))
        return error.getMessage() == kx::String::fromLatin1(std::bad_alloc().what()) ? OutOfMemory : Unknown;
    if (error.getDomain() == "http")
        return kindOfStore(error);
    if (error.getProps().has("systemError"))
        return kindOfSystem(statusOf(error.getProps().get("systemError")));
    return kindOfCause(error);
}

} // namespace

ErrorKind getErrorKind(const std::exception& error) noexcept
{
    try {
        if (const auto* const known = dynamic_cast<const kx::CError*>(&error))
            return kindOf(*known);
        if (const auto* const system = dynamic_cast<const std::system_error*>(&error)) {
            const std::error_condition condition = system->code().default_error_condition();
            return condition.category() == std::generic_category() ? kindOfSystem(condition.value()) : Unknown;
        }
        return dynamic_cast<const std::bad_alloc*>(&error) ? OutOfMemory : Unknown;
    } catch (const std::exception&) {
        return Unknown;
    }
}

} // namespace norla
