#pragma once

#include "examples/exitCodes.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"

#include <string>

/// Some servers explain themselves in long pages.
inline constexpr size_t mostLetters = 300;

/// The server's own words for the status with which it has refused something, such as "404 Not Found" or "550 No such
/// file."; empty when it has none.
inline kx::String statusWords(const norla::CNetStringList& lines, const kx::String& status)
{
    kx::String words;
    const auto line = lines.createIterator();
    while (line->next()) {
        kx::String text = line->getCurrent().trim();
        if (text.startsWith("HTTP/"))
            text = text.substr(text.find(L' ')).trim();
        if (status >= "400" && text.startsWith(status))
            words = text.substr(0, mostLetters);
    }
    return words;
}

/// What the server said about the error.
/// @param lines its headers or replies
inline kx::String toldByServer(const kx::CError& error, const norla::CNetStringList* lines)
{
    const auto* const failure = dynamic_cast<const norla::CCURLError*>(&error);
    const kx::String reply = failure ? failure->getServerReply() : kx::String();
    if (!reply.isEmpty())
        return "\n" + reply;
    kx::String told;
    const kx::String words = lines ? statusWords(*lines, error.getProps().get("responseCode")) : kx::String();
    if (!words.isEmpty())
        told += "\n" + words;
    const kx::String explanation = error.getProps().get("serverMessage").trim();
    if (error.getProps().get("responseCodeDomain") == "http" && !explanation.isEmpty() && explanation[0] != L'<')
        told += "\n" + explanation.substr(0, mostLetters);
    return told;
}

/// What libcurl knows and does not say.
inline kx::String knownReason(const kx::CError& error, norla::CNetRequest& request)
{
    if (error.getDomain() != "curl")
        return {};
    const int errorNumber = error.getCode() == CURLE_COULDNT_CONNECT ? request.getInfoLong(CURLINFO_OS_ERRNO) : 0;
    if (errorNumber != 0)
        return "\n" + kx::systemErrorText(errorNumber);
    if (error.getCode() == CURLE_PEER_FAILED_VERIFICATION && request.getURL().startsWith("sftp:"))
        return "\nThe file of known hosts has no such key for this server.";
    return {};
}

/// What there is to add to an error, in lines that begin with a line feed: the reason, and what the server said.
/// @param request that has failed; null when nobody has it
inline kx::String moreAbout(const kx::CError& error, norla::CNetRequest* request)
{
    const kx::String reason = request ? knownReason(error, *request) : kx::String();
    return reason + toldByServer(error, request ? request->getResponseInfo() : nullptr);
}

/// Does something with a file or object of a server. If that fails, the error names it, and tells what the server said.
/// @param request what does it; null when nobody has it
template <typename TAction>
void naming(const kx::String& what, norla::CNetRequest* request, TAction action)
{
    try {
        action();
    } catch (const kx::CError& error) {
        if (exitCodeOf(error) != exitFailed)
            throw; // it names something else
        throw kx::CError(what + ": " + error.getMessage() + moreAbout(error, request));
    }
}
