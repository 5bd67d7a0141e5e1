#include "norla/files/downloadAnswer.h"

#include "kx/text/numbers.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/http/util.h"

#include <algorithm>

namespace norla {

namespace {

constexpr int statusOK = 200;
constexpr int statusPartialContent = 206;

kx::String headerIn(const CNetRequest::HeaderMap& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    return found == headers.end() ? kx::String() : found->second;
}

/// Unset when there is none, or none that anybody understands.
kx::CTime timeIn(const CNetRequest::HeaderMap& headers, const kx::String& name)
{
    const kx::String text = headerIn(headers, name);
    try {
        return text.isEmpty() ? kx::CTime() : parseTimestamp(text);
    } catch (const kx::CError&) {
        return {};
    }
}

/// A time proves something where the resource could not change once more within it (RFC 9110 section 8.8.2.2).
bool isOld(const CNetRequest::HeaderMap& headers)
{
    constexpr long long minute = 60'000'000;
    const kx::CTime modified = timeIn(headers, "last-modified");
    const kx::CTime answered = timeIn(headers, "date");
    return modified.isSet() && answered.isSet() && answered.getMicroseconds() - minute >= modified.getMicroseconds();
}

CValidators validatorsOf(const CDownloadAnswer& answer)
{
    CValidators validators;
    if (answer.status < 0) {
        validators.fileTime = answer.fileTime;
        return validators;
    }
    const kx::String eTag = headerIn(answer.headers, "etag");
    if (!eTag.isEmpty() && eTag[0] == L'"') // a weak one begins with W/
        validators.eTag = eTag.toUTF8();
    if (isOld(answer.headers))
        validators.lastModified = headerIn(answer.headers, "last-modified").toUTF8();
    return validators;
}

/// What both sides tell must be the same; a part need not tell all (RFC 9110 section 15.3.7).
bool isSameResource(const CValidators& before, const CDownloadAnswer& answer)
{
    if (answer.status < 0)
        return before.fileTime == answer.fileTime;
    if (!before.eTag.empty())
        return before.eTag == headerIn(answer.headers, "etag").toUTF8();
    const kx::String lastModified = headerIn(answer.headers, "last-modified");
    return !before.lastModified.empty() && (lastModified.isEmpty() || before.lastModified == lastModified.toUTF8());
}

kx::String textOf(const CAskedPart& asked)
{
    if (!asked.isPart)
        return "the whole file";
    return "the bytes " + kx::toString(asked.start) + "-" + (asked.end ? kx::toString(*asked.end - 1) : kx::String());
}

[[noreturn]] void throwOther(const CAskedPart& asked, const kx::String& given)
{
    throw kx::CError("The server was asked for " + textOf(asked) + " and gave something else: " + given + ".");
}

kx::P<CHTTPContentRange> rangeOf(const CAskedPart& asked, const kx::String& header)
{
    try {
        return CHTTPContentRange::parse(header);
    } catch (const kx::CError&) {
        throwOther(asked, "Content-Range '" + header + "'");
    }
}

/// @return the size of the whole, where the server tells it
std::optional<long long> requireAskedPart(const CAskedPart& asked, const CDownloadAnswer& answer)
{
    const kx::String header = headerIn(answer.headers, "content-range");
    const auto range = rangeOf(asked, header);
    const long long total = range->getTotal();
    const long long last = range->getLast();
    const bool isPart = range->getUnit() == "bytes" && range->getFirst() == asked.start && last >= asked.start;
    const bool isInside = (total < 0 || last < total) && (!asked.end || last < *asked.end);
    const bool isWhole = asked.end || total < 0 || last == total - 1;
    // Numbers may be as large as they can be: with isPart there is room for the difference, but for no more.
    const bool isAnnounced = isPart && (!answer.announced || *answer.announced - 1 == last - asked.start);
    if (!isPart || !isInside || !isWhole || !isAnnounced)
        throwOther(asked, "Content-Range '" + header + "'");
    return total < 0 ? std::nullopt : std::optional(total);
}

AnswerVerdict judgePart(const CAskedPart& asked, const CDownloadAnswer& answer, CKnownResource& known)
{
    // It knows no ranges, or If-Range has found another resource. A page that a proxy or a login puts in the place of
    // the file is neither, and tells nothing by which it could be known again.
    const bool isResource = answer.headers.contains("etag") || answer.headers.contains("last-modified");
    if (answer.status == statusOK && isResource)
        return AnswerVerdict::StartAnew;
    if (answer.status != statusPartialContent)
        throwOther(asked, "status " + kx::toString(answer.status));
    if (!isSameResource(known.validators, answer))
        return AnswerVerdict::StartAnew;
    const std::optional<long long> total = requireAskedPart(asked, answer);
    if (total && known.total && *total != *known.total)
        return AnswerVerdict::StartAnew;
    if (total)
        known.total = total;
    known.takesRanges = true;
    return AnswerVerdict::Fits;
}

/// Over FTP and SFTP: the size is told ahead of the bytes.
AnswerVerdict judgePartOfFile(const CAskedPart& asked, const CDownloadAnswer& answer, const CKnownResource& known)
{
    const bool hasSize = answer.announced && known.total;
    if (!hasSize || *known.total - asked.start != *answer.announced || !isSameResource(known.validators, answer))
        return AnswerVerdict::StartAnew;
    return AnswerVerdict::Fits;
}

/// libcurl takes a size that is too large to be counted for none, and then the end of the connection for that of the
/// file; of several it takes one. The same one may be there twice (RFC 9110 section 8.6).
bool isOneSize(const kx::String& header)
{
    const kx::String last = header.substr(header.rfind(L',') + 1).trim(); // all of it without a comma
    try {
        for (size_t start = 0; start <= header.size();) {
            const size_t end = std::min(header.find(L",", start), header.size());
            if (header.substr(start, end - start).trim() != last)
                return false;
            start = end + 1;
        }
        return kx::parseInt64(last, false) >= 0;
    } catch (const kx::CError&) {
        return false;
    }
}

void requireOneSize(const CAskedPart& asked, const CDownloadAnswer& answer)
{
    const kx::String header = headerIn(answer.headers, "content-length");
    if (!header.isEmpty() && !answer.headers.contains("transfer-encoding") && !isOneSize(header))
        throwOther(asked, "Content-Length '" + header + "'");
}

void learn(const CDownloadAnswer& answer, CKnownResource& known)
{
    known.isKnown = true;
    known.validators = validatorsOf(answer);
    known.total = answer.announced;
    known.takesRanges = headerIn(answer.headers, "accept-ranges") == "bytes";
    known.modified = answer.fileTime;
}

} // namespace

AnswerVerdict judgeAnswer(const CAskedPart& asked, const CDownloadAnswer& answer, CKnownResource& known)
{
    if (asked.isPart)
        return answer.status < 0 ? judgePartOfFile(asked, answer, known) : judgePart(asked, answer, known);
    if (answer.status >= 0 && answer.status != statusOK)
        throwOther(asked, "status " + kx::toString(answer.status));
    requireOneSize(asked, answer);
    learn(answer, known);
    return AnswerVerdict::Fits;
}

} // namespace norla
