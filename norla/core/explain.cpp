#include "norla/core/explain.h"

#include "norla/core/CCURLError.h"
#include "norla/core/errorKind.h"
#include "norla/http/util.h"

#include <algorithm>
#include <string>

namespace norla {

namespace {

constexpr size_t longestMessage = 1000;

/// Control characters, and those that turn the direction of the text around them.
bool isInvisible(wchar_t c) noexcept
{
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x200E || c == 0x200F || (c >= 0x2028 && c <= 0x202E)
        || (c >= 0x2066 && c <= 0x2069);
}

/// On one line, at most so many characters long.
kx::String cleaned(const kx::String& text, size_t most)
{
    std::wstring line;
    for (const wchar_t c : text.toWide()) {
        if (!isInvisible(c) && c != L' ')
            line += c;
        else if (!line.empty() && line.back() != L' ')
            line += L' ';
        if (line.size() > most)
            break;
    }
    const bool isCut = line.size() > most;
    line.resize(std::min(line.size(), most));
    return kx::String(line).trim() + kx::String::fromLatin1(isCut ? "..." : "");
}

/// What a sentence speaks of.
struct CPlace {
    kx::String server; // or the proxy on the way there
    bool isProxy = false;
    kx::String name; // of the file, quoted; empty when there is none worth naming
    kx::String url;  // that cannot be used
    bool isWithoutURL = false;
    bool isKnown = true; // which server it is

    kx::String with(const char* word) const
    {
        return name.isEmpty() ? kx::String() : " " + kx::String::fromLatin1(word) + " " + name;
    }
    kx::String nameOr(const char* other) const { return name.isEmpty() ? kx::String::fromLatin1(other) : name; }
};

kx::String quotedPath(const kx::String& path)
{
    constexpr size_t longestName = 300;
    return path.isEmpty() || path == "/" ? kx::String() : "'" + cleaned(path, longestName) + "'";
}

kx::String invalidSentence(long long code, const CPlace& place)
{
    const kx::String address = place.url.isEmpty() ? "The address" : "The address '" + place.url + "'";
    switch (code) {
    case CURLE_URL_MALFORMAT:
        return place.isWithoutURL ? "There is no address to go to" : address + " cannot be read";
    case CURLE_UNSUPPORTED_PROTOCOL:
        return address + " is of a kind that is not supported";
    default:
        return "The transfer was asked for in a way that is not supported";
    }
}

kx::String certificateSentence(long long code, const CPlace& place)
{
    if (code == CURLE_SSL_CERTPROBLEM || code == CURLE_SSL_CLIENTCERT)
        return "The certificate that " + place.server + " asks for cannot be used";
    if (code == CURLE_SSL_CACERT_BADFILE || code == CURLE_SSL_CRL_BADFILE)
        return "The list of trusted certificates, which " + place.server + " is checked against, cannot be used";
    return "It is not certain that " + place.server + " is the server that was meant";
}

kx::String protocolSentence(long long code, const CPlace& place)
{
    if (code == CURLE_TOO_MANY_REDIRECTS)
        return "Too many redirects come from " + place.server + place.with("for");
    if (code == CURLE_UNSUPPORTED_PROTOCOL)
        return "A redirect leads to " + place.server + place.with("and") // libcurl says no more of where it comes from
            + " by a protocol that is not supported";
    if (code == CURLE_URL_MALFORMAT)
        return "A redirect from " + place.server + place.with("for") + " leads to an address that cannot be read";
    return "The answer of " + place.server + place.with("about") + " makes no sense";
}

/// Without the full stop.
kx::String sentenceOf(ErrorKind kind, long long code, const CPlace& place)
{
    switch (kind) {
    case ErrorKind::InvalidArgument:
        return invalidSentence(code, place);
    case ErrorKind::OutOfMemory:
        return "There is not enough memory";
    case ErrorKind::Cancelled:
        return place.isKnown ? "The transfer" + place.with("of") + " with " + place.server + " was cancelled"
                             : "The transfer was cancelled"; // before it has begun
    case ErrorKind::NotFound:
        return "There is no " + place.nameOr("such file") + " on " + place.server;
    case ErrorKind::Denied:
        return "The use of " + place.nameOr("this") + " is not allowed on " + place.server;
    case ErrorKind::Login:
        return "The login is refused by " + place.server + place.with("for");
    case ErrorKind::Certificate:
        return certificateSentence(code, place);
    case ErrorKind::Encryption:
        return "No encrypted connection to " + place.server + " is possible";
    case ErrorKind::NameLookup:
        return "The name of " + place.server + " is not known";
    case ErrorKind::Unreachable:
        return kx::String::fromLatin1(place.isProxy && code != CURLE_COULDNT_CONNECT
                       ? "No connection is made by "
                       : "It is not possible to connect to ")
            + place.server + place.with("for");
    case ErrorKind::ConnectTimeout:
    case ErrorKind::TotalTimeout:
    case ErrorKind::InactivityTimeout:
        return "It takes too long to wait for " + place.server + place.with("and");
    case ErrorKind::ConnectionLost:
        return "The connection to " + place.server + " was lost" + place.with("during");
    case ErrorKind::RecipientRefused:
        return "A recipient of the mail is refused by " + place.server;
    case ErrorKind::Full:
        return "There is no space left" + place.with("for") + " on " + place.server;
    case ErrorKind::TooLarge:
        return "The size of " + place.nameOr("the transfer") + " is beyond what is allowed with " + place.server;
    case ErrorKind::Temporary:
        return "It is not possible at the moment, but maybe later, to use " + place.server + place.with("for");
    case ErrorKind::Protocol:
        return protocolSentence(code, place);
    case ErrorKind::Refused:
        return "The request" + place.with("for") + " was refused by " + place.server;
    case ErrorKind::Unknown:
        break;
    }
    return "The transfer" + place.with("of") + " with " + place.server + " has failed";
}

/// Whether it is the server that has decided, so that its words say why.
bool isServersWord(ErrorKind kind) noexcept
{
    switch (kind) {
    case ErrorKind::NotFound:
    case ErrorKind::Denied:
    case ErrorKind::Login:
    case ErrorKind::Encryption:
    case ErrorKind::RecipientRefused:
    case ErrorKind::Full:
    case ErrorKind::TooLarge:
    case ErrorKind::Temporary:
    case ErrorKind::Refused:
        return true;
    default:
        return false;
    }
}

kx::String withWords(const kx::String& sentence, const char* who, const kx::String& words)
{
    constexpr size_t mostWords = 200;
    const kx::String said = cleaned(words, mostWords);
    return said.isEmpty() ? sentence + "."
                          : sentence + "; the " + kx::String::fromLatin1(who) + " says: \"" + said + "\".";
}

kx::String wordsOf(const CCURLError& error)
{
    if (!error.getServerReply().isEmpty())
        return error.getServerReply();
    if (!error.getDetails().ftpReply.isEmpty())
        return error.getDetails().ftpReply;
    const bool isHTTP = error.getProps().get("responseCodeDomain") == "http";
    return isHTTP ? error.getProps().get("serverMessage") : kx::String();
}

bool isOfProxy(const CCURLError& error)
{
    constexpr const char* loginDemandedByProxy = "407"; // RFC 9110 section 15.5.8
    return error.getCode() == CURLE_COULDNT_RESOLVE_PROXY || error.getCode() == CURLE_PROXY
        || error.getDetails().proxyStatus >= 300
        || (!error.getDetails().proxy.isEmpty() && error.getDetails().phase == TransferPhase::Connect)
        || error.getProps().get("responseCode") == kx::String::fromLatin1(loginDemandedByProxy);
}

kx::String shownHost(const kx::String& host)
{
    constexpr size_t longestHost = 300;
    return cleaned(host, longestHost);
}

CPlace placeOf(const CCURLError& error)
{
    constexpr size_t longestURL = 500;
    const kx::String host = shownHost(error.getDetails().host);
    const kx::String server = host.isEmpty() ? "the server" : "the server " + host;
    const bool isProxy = isOfProxy(error);
    const kx::String proxy = shownHost(error.getDetails().proxy);
    const kx::String named = proxy.isEmpty() ? "the proxy" : "the proxy " + proxy;
    return {.server = isProxy ? named + " on the way to " + server : server,
        .isProxy = isProxy,
        .name = quotedPath(error.getDetails().path),
        .url = cleaned(error.getDetails().url, longestURL),
        .isWithoutURL = error.getDetails().url.isEmpty() && error.getDetails().phase != TransferPhase::Unknown,
        .isKnown = !host.isEmpty() || isProxy};
}

/// The sentence, with the path where it does not name it: before what it gives as the reason, or at the end.
kx::String withPath(const kx::String& sentence, const kx::String& name)
{
    if (name.isEmpty() || sentence.find(name) != kx::String::npos)
        return sentence;
    const size_t reason = sentence.find(": ");
    const size_t end = sentence.endsWith(".") ? sentence.size() - 1 : sentence.size();
    const size_t at = std::min(reason, end);
    return sentence.substr(0, at) + " for " + name + sentence.substr(at);
}

kx::String explainTransfer(const CCURLError& error)
{
    const CFailureDetails& details = error.getDetails();
    if (!details.limitText.isEmpty())
        return withPath(cleaned(details.limitText, longestMessage), quotedPath(details.path));
    const ErrorKind kind = getErrorKind(error);
    const CPlace place = placeOf(error);
    return withWords(sentenceOf(kind, error.getCode(), place), place.isProxy ? "proxy" : "server",
        isServersWord(kind) ? wordsOf(error) : kx::String());
}

/// Which store it is, and of what it speaks: by its own words, or else as it was asked.
CPlace storeOf(const kx::CError& error)
{
    const auto cause = error.getCause();
    const auto* const transfer = dynamic_cast<const CCURLError*>(cause.get());
    const CFailureDetails details = transfer ? transfer->getDetails() : CFailureDetails();
    const kx::String named = error.getProps().get("s3-resource");
    const kx::String asked = urlUnescape(details.path, false); // empty when that is not UTF-8
    const bool isOfStore = !named.isEmpty() && named != details.path;
    return {.server = details.host.isEmpty() ? "the store" : "the store " + shownHost(details.host),
        .isProxy = false,
        .name = quotedPath(isOfStore ? named
                : asked.isEmpty()    ? details.path
                                     : asked),
        .url = {}};
}

/// What the store says stands in the message with its code behind it.
kx::String explainStore(const kx::CError& error, ErrorKind kind)
{
    const kx::String code = error.getProps().get("s3-code");
    const kx::String start = "Amazon S3 error: ";
    const kx::String end = "(" + code + ")";
    kx::String words = error.getMessage();
    if (words.startsWith(start) && words.endsWith(end))
        words = words.substr(start.size(), words.size() - start.size() - end.size());
    return withWords(sentenceOf(kind, 0, storeOf(error)), "store", words.isEmpty() ? code : words);
}

} // namespace

kx::String explain(const kx::CError& error)
{
    if (const auto* const transfer = dynamic_cast<const CCURLError*>(&error))
        return explainTransfer(*transfer);
    const ErrorKind kind = getErrorKind(error);
    if (error.getProps().has("s3-code"))
        return explainStore(error, kind);
    return kind == ErrorKind::OutOfMemory ? "There is not enough memory." : cleaned(error.getMessage(), longestMessage);
}

} // namespace norla
