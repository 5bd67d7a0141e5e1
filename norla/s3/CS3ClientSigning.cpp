// How a CS3Client signs its requests.
#include "kx/base/CError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3Client.h"
#include "sela/base64.h"
#include "sela/hmac.h"

#include <string_view>

namespace norla {

void CS3Client::makeSingleLineHeaderValue(kx::String& value)
{
    size_t lineFeed = value.find(L'\n');
    while (lineFeed != kx::String::npos) {
        value = value.substr(0, lineFeed) + " " + value.substr(lineFeed).trimLeft();
        lineFeed = value.find(L'\n', lineFeed);
    }
}

kx::String CS3Client::getHeaderFromMap(const HeaderMap& map, const kx::String& name)
{
    const auto found = map.find(name);
    return found == map.end() ? kx::String() : found->second;
}

kx::String CS3Client::getCanonicalizedAMZHeaders(const HeaderMap& map)
{
    // The map is ordered by code point already, as the signature wants its lines.
    const kx::String prefix = "x-amz-";
    kx::String lines;
    for (auto header = map.lower_bound(prefix); header != map.end() && header->first.startsWith(prefix); ++header) {
        kx::String value = header->second;
        makeSingleLineHeaderValue(value);
        lines += header->first + ":" + value + "\n";
    }
    return lines;
}

kx::String CS3Client::getCanonicalizedResource(const kx::String& url)
{
    constexpr std::wstring_view schemeEnd = L"://";
    const std::wstring& text = url.toWide();
    const size_t scheme = text.find(schemeEnd);
    const size_t path = scheme == std::wstring::npos ? scheme : text.find(L'/', scheme + schemeEnd.size());
    if (path == std::wstring::npos)
        throw kx::CError("Invalid Amazon S3 query URL: '" + url + "'.");
    const size_t query = text.find(L'?', path);
    const bool hasParameters = query != std::wstring::npos && text.find_first_of(L"=&", query) != std::wstring::npos;
    return url.substr(path, hasParameters ? query - path : kx::String::npos);
}

kx::String CS3Client::getStringToSign(CNetRequest* request)
{
    HeaderMap headers;
    if (const auto list = request->getCustomHTTPHeaders())
        list->fillMap(headers);
    const kx::String date = headers.contains("x-amz-date") ? kx::String() : getHeaderFromMap(headers, "date");
    return request->getHTTPMethod() + "\n" + getHeaderFromMap(headers, "content-md5") + "\n"
        + getHeaderFromMap(headers, "content-type") + "\n" + date + "\n" + getCanonicalizedAMZHeaders(headers)
        + getCanonicalizedResource(request->getURL());
}

kx::String CS3Client::getSignature(CNetRequest* request)
{
    const std::string message = getStringToSign(request).toUTF8();
    sela::calcHMAC_SHA1(m_signatureBuffer, reinterpret_cast<const unsigned char*>(message.data()), message.size(),
        reinterpret_cast<const unsigned char*>(m_secretAccessKeyUTF8.data()), m_secretAccessKeyUTF8.size());
    return sela::base64Encode(m_signatureBuffer.getData(), m_signatureBuffer.getSize(), true, false);
}

void CS3Client::signRequest(CNetRequest* request)
{
    kx::P<CNetHeaders> headers = request->getCustomHTTPHeaders();
    const bool isNew = !headers;
    if (isNew)
        headers = kx::newObj<CNetHeaders>();
    headers->add("Authorization", "AWS " + m_accessKeyId + ":" + getSignature(request));
    headers->sendEmpty("x-amz-"); // they are signed
    if (isNew)
        request->setCustomHTTPHeaders(headers.get());
}

} // namespace norla
