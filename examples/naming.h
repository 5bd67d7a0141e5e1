#pragma once

#include "examples/exitCodes.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"

#include <string>

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
            words = text;
    }
    return words;
}

/// What the server said about the error, each sentence behind a line feed; empty when it said nothing.
/// @param lines the headers or replies of the server; null for none
inline kx::String toldByServer(const kx::CError& error, const norla::CNetStringList* lines)
{
    const auto* const failure = dynamic_cast<const norla::CCURLError*>(&error);
    kx::String told;
    if (failure && !failure->getServerReply().isEmpty())
        told += "\n" + failure->getServerReply();
    else if (const kx::String words = lines ? statusWords(*lines, error.getProps().get("responseCode")) : "";
             !words.isEmpty())
        told += "\n" + words;
    constexpr size_t mostLetters = 300; // some servers explain themselves in long pages
    if (error.getProps().get("responseCodeDomain") == "http" && error.getProps().has("serverMessage"))
        told += "\n" + error.getProps().get("serverMessage").trim().substr(0, mostLetters);
    return told;
}

/// Does something with a file or object of a server. If that fails, the error names it, and tells what the server said.
template <typename TAction>
void naming(const kx::String& what, TAction action, const norla::CNetRequest* request = nullptr)
{
    try {
        action();
    } catch (const kx::CError& error) {
        if (exitCodeOf(error) != exitFailed)
            throw; // it names something else
        const auto* const lines = request ? request->getResponseInfo() : nullptr;
        throw kx::CError(what + ": " + error.getMessage() + toldByServer(error, lines));
    }
}

/// The same for what the request does.
template <typename TAction>
void naming(const kx::String& what, const norla::CNetRequest& request, TAction action)
{
    naming(what, action, &request);
}
