#include "norla/s3/multipartDocuments.h"

#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "norla/s3/forbiddenCharacters.h"
#include "sela/CDigest.h"

#include <algorithm>
#include <optional>

namespace norla {

namespace {

CS3Document parsedAnswer(std::string_view document, const char* root)
{
    constexpr int noHTTPFailure = 0;
    const kx::String title = "'" + kx::String::fromLatin1(root) + "' answer";
    const size_t start = std::min(document.find_first_not_of(" \t\r\n"), document.size());
    // Keys may hold what XML does not, and nobody reads them here.
    CS3Document answer(withForbiddenCharactersEscaped(document.substr(start)), title, CS3Document::mostElements);
    const CXMLElement found = answer.getRoot();
    if (found.isNamed("Error"))
        throw CS3Error(CS3ErrorResponse(found), noHTTPFailure);
    if (!found.isNamed(root))
        throw kx::CError("Error parsing Amazon S3 " + title + ": the root element is '" + found.getName() + "'.");
    return answer;
}

/// Of the last element of that name; empty without one.
kx::String childText(const CXMLElement& parent, std::string_view name)
{
    kx::String text;
    parent.forEachElement([&text, name](const CXMLElement& element) {
        if (element.isNamed(name))
            text = element.getText();
    });
    return text;
}

long long numberOfParts(const kx::String& text, const char* what, long long least, long long most)
{
    long long number = least - 1;
    try {
        number = kx::parseInt64(text, true);
    } catch (const kx::CError&) {
        number = least - 1; // told below with the name of the thing
    }
    if (number < least || number > most)
        throw kx::CError("The store's list of parts has '" + text + "' for " + kx::String::fromLatin1(what) + ".");
    return number;
}

CS3UploadedPart listedPart(const CXMLElement& element)
{
    constexpr long long largestPart = 5LL << 40;
    CS3UploadedPart part;
    part.number = static_cast<int>(numberOfParts(childText(element, "PartNumber"), "a part's number", 1, mostS3Parts));
    part.size = numberOfParts(childText(element, "Size"), "a part's size", 0, largestPart);
    part.eTag = childText(element, "ETag");
    requireETag(part.eTag, "part " + kx::toString(part.number) + " in the store's list");
    return part;
}

std::string escapedETag(const std::string& eTag)
{
    std::string text;
    for (const char character : eTag) {
        if (character == '&')
            text += "&amp;";
        else if (character == '<')
            text += "&lt;";
        else if (character == '>')
            text += "&gt;";
        else if (character == '"')
            text += "&quot;";
        else
            text += character;
    }
    return text;
}

constexpr size_t md5Digits = 32;

/// In lower case, without quotes.
std::string plainETag(const kx::String& eTag)
{
    const std::string text = eTag.toLower().toUTF8();
    const bool isQuoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return isQuoted ? text.substr(1, text.size() - 2) : text;
}

bool isMD5(std::string_view text)
{
    return text.size() == md5Digits
        && std::all_of(text.begin(), text.end(), [](char character) { return kx::hexDecodeCharLax(character) >= 0; });
}

/// How many parts an object's ETag speaks of; nothing when it is not the ETag of an object by parts.
std::optional<long long> partsSaidIn(const kx::String& eTag)
{
    constexpr size_t mostDigits = 9;
    const std::string text = plainETag(eTag);
    const std::string count = text.substr(std::min(text.size(), md5Digits + 1));
    const bool isCount
        = !count.empty() && count.size() <= mostDigits && count.find_first_not_of("0123456789") == std::string::npos;
    if (!isCount || text[md5Digits] != '-' || !isMD5(text.substr(0, md5Digits)))
        return std::nullopt;
    return std::stoll(count);
}

} // namespace

kx::String uploadIdIn(std::string_view document)
{
    const CS3Document answer = parsedAnswer(document, "InitiateMultipartUploadResult");
    kx::String id = childText(answer.getRoot(), "UploadId");
    if (id.isEmpty())
        throw kx::CError("The store began an upload by parts and gave it no id.");
    return id;
}

kx::String completedETagIn(std::string_view document)
{
    const CS3Document answer = parsedAnswer(document, "CompleteMultipartUploadResult");
    kx::String eTag = childText(answer.getRoot(), "ETag");
    if (!eTag.isEmpty())
        requireETag(eTag, "the object that was completed");
    return eTag;
}

kx::String eTagIn(std::string_view document, const char* root)
{
    const CS3Document answer = parsedAnswer(document, root);
    kx::String eTag = childText(answer.getRoot(), "ETag");
    requireETag(eTag, "the store's '" + kx::String::fromLatin1(root) + "' answer");
    return eTag;
}

CS3PartPage partsIn(std::string_view document, int marker)
{
    const CS3Document answer = parsedAnswer(document, "ListPartsResult");
    CS3PartPage page;
    int last = marker;
    answer.getRoot().forEachElement([&page, &last](const CXMLElement& element) {
        if (!element.isNamed("Part"))
            return;
        page.parts.push_back(listedPart(element));
        const int number = page.parts.back().number;
        if (number <= last)
            throw kx::CError("The store's list of parts does not go on: part " + kx::toString(number)
                + " comes behind part " + kx::toString(last) + ".");
        last = number;
    });
    const kx::String truncated = childText(answer.getRoot(), "IsTruncated").toLower();
    if (truncated != "true" && truncated != "false" && !truncated.isEmpty())
        throw kx::CError("The store's list of parts has '" + truncated + "' for whether it goes on.");
    if (truncated != "true")
        return page;
    const kx::String next = childText(answer.getRoot(), "NextPartNumberMarker");
    page.nextMarker = next.isEmpty()
        ? last
        : static_cast<int>(numberOfParts(next, "the number behind which it goes on", 0, mostS3Parts));
    if (page.nextMarker <= marker || page.nextMarker < last)
        throw kx::CError("The store's list of parts does not end: behind part " + kx::toString(last)
            + " it goes on behind part " + kx::toString(page.nextMarker) + ".");
    return page;
}

std::string completionOf(const kx::TArray<CS3UploadedPart>& parts)
{
    std::string document = "<CompleteMultipartUpload xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">";
    for (const CS3UploadedPart& part : parts)
        document += "<Part><PartNumber>" + std::to_string(part.number) + "</PartNumber><ETag>"
            + escapedETag(part.eTag.toUTF8()) + "</ETag></Part>";
    return document + "</CompleteMultipartUpload>";
}

void requireETag(const kx::String& eTag, const kx::String& what)
{
    constexpr size_t longest = 1024;
    const std::wstring& text = eTag.toWide();
    const bool isPrintable
        = std::all_of(text.begin(), text.end(), [](wchar_t character) { return character > L' ' && character < 0x7F; });
    if (text.empty())
        throw kx::CError("There is no ETag for " + what + ".");
    if (!isPrintable || text.size() > longest)
        throw kx::CError("The ETag '" + eTag.substr(0, longest) + "' for " + what + " is none.");
}

std::string md5InETag(const kx::String& eTag)
{
    const std::string text = plainETag(eTag);
    return isMD5(text) ? text : std::string();
}

std::string eTagOfParts(const kx::TArray<CS3UploadedPart>& parts)
{
    sela::CDigest digest("MD5");
    for (const CS3UploadedPart& part : parts) {
        const std::string md5 = md5InETag(part.eTag);
        if (md5.empty())
            return {};
        for (size_t i = 0; i < md5.size(); i += 2) {
            const auto byte
                = static_cast<unsigned char>(16 * kx::hexDecodeCharLax(md5[i]) + kx::hexDecodeCharLax(md5[i + 1]));
            digest.update(&byte, 1);
        }
    }
    digest.finish();
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8() + "-"
        + std::to_string(parts.size());
}

void requireETagOfParts(
    const kx::String& eTag, const kx::TArray<CS3UploadedPart>& parts, bool isOfBytes, const kx::String& objectName)
{
    const std::optional<long long> said = partsSaidIn(eTag);
    if (!said)
        return;
    const auto count = static_cast<long long>(parts.size());
    if (*said != count)
        throw kx::CError("The object '" + objectName + "' has the ETag " + eTag + " at the store, which is one of "
            + kx::toString(*said) + " parts, and not of the " + kx::toString(count) + " that were sent.");
    const bool areKnown
        = std::none_of(parts.begin(), parts.end(), [](const CS3UploadedPart& part) { return part.md5.empty(); });
    if (!isOfBytes || !areKnown)
        return;
    const std::string expected = eTagOfParts(parts);
    if (plainETag(eTag) != expected)
        throw kx::CError("The object '" + objectName + "' has the ETag " + eTag
            + " at the store, and the parts that were sent make " + kx::String::fromUTF8(expected) + ".");
}

} // namespace norla
