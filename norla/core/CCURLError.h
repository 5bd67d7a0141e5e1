#pragma once

#include "kx/base/CError.h"
#include "norla/core/CFailureDetails.h"

#include <curl/curl.h>

namespace norla {

/// A libcurl call or a transfer has failed. Domain "curl" with a CURLcode as code, or "curlm" with a CURLMcode.
///
/// Properties, each there only when it is known: "serverMessage", what the server said about it; "responseCode", its
/// status in decimal; "responseCodeDomain", what that status belongs to ("http", "ftp" or "smtp").
class KX_EXPORT CCURLError : public kx::CError {
public:
    /// The error's message is libcurl's own text for the code, then ": " and `message` unless that is empty, then the
    /// response code when it is greater than 0, as in "HTTP response code said error: ... (response code: http 404)".
    /// @param responseCodeDomain empty when there was no response
    /// @param responseCode 0 or less when there was no response
    CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage);

    /// The same with what getServerReply() answers.
    CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage, const kx::String& serverReply);

    /// The same with what getDetails() answers.
    CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage, const kx::String& serverReply, const CFailureDetails& details);

    /// The same for the multi interface.
    CCURLError(CURLMcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
        const kx::String& serverMessage);

    CCURLError(const CCURLError&) = default;
    ~CCURLError() override;

    /// What a mail server refused with: the last reply of the transfer that has a status of 400 to 599, all its lines,
    /// with a line feed between them; empty when it refused nothing, and for other servers. This is for people: the
    /// "serverMessage" of a mail is the last line of all, which may be the answer to a goodbye ("221 Bye") or what came
    /// before a TLS failure ("220 Ready to start TLS").
    const kx::String& getServerReply() const noexcept { return m_serverReply; }

    /// Where the transfer was. Nothing is known of an error that is none of a transfer, such as a refused option.
    const CFailureDetails& getDetails() const noexcept { return m_details; }

    kx::P<kx::CError> clone() const override;
    [[noreturn]] void throwClone() const override;

private:
    kx::String m_serverReply;
    CFailureDetails m_details;
};

} // namespace norla
