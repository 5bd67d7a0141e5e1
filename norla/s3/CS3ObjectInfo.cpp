#include "norla/s3/CS3ObjectInfo.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/http/util.h"
#include "norla/s3/encodedMetadata.h"

namespace norla {

namespace {

using InfoHeaders = CS3ObjectInfo::HeaderMap;

kx::String infoText(const InfoHeaders& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    return found == headers.end() ? kx::String() : found->second;
}

kx::CTime infoTime(const InfoHeaders& headers, const kx::String& name)
{
    try {
        return parseTimestamp(infoText(headers, name));
    } catch (const kx::CError&) {
        return {}; // "Expires: 0" is common
    }
}

long long infoNumber(const InfoHeaders& headers, const kx::String& name, long long otherwise)
{
    try {
        const long long number = kx::parseInt64(infoText(headers, name), true);
        return number < 0 ? otherwise : number;
    } catch (const kx::CError&) {
        return otherwise;
    }
}

kx::TMap<kx::String, kx::String> infoMetadata(const InfoHeaders& headers)
{
    const kx::String prefix = "x-amz-meta-";
    kx::TMap<kx::String, kx::String> metadata;
    for (auto header = headers.lower_bound(prefix); header != headers.end() && header->first.startsWith(prefix);
         ++header)
        metadata[header->first.substr(prefix.size())] = decodeMetadata(header->second);
    return metadata;
}

/// Some stores keep of an object how it has come to them, in signed chunks, in which nobody gets it.
kx::String infoEncoding(const InfoHeaders& headers)
{
    const kx::String way = "aws-chunked";
    const kx::String encoding = infoText(headers, "content-encoding");
    if (encoding.toLower() == way)
        return {};
    return encoding.toLower().startsWith(way + ",") ? encoding.substr(way.size() + 1).trim() : encoding;
}

} // namespace

CS3ObjectInfo CS3ObjectInfo::fromChangeHeaders(const HeaderMap& headers)
{
    CS3ObjectInfo info;
    info.eTag = infoText(headers, "etag");
    info.versionId = infoText(headers, "x-amz-version-id");
    info.isDeleteMarker = infoText(headers, "x-amz-delete-marker").toLower() == "true";
    info.encryption = infoText(headers, "x-amz-server-side-encryption");
    info.encryptionKeyId = infoText(headers, "x-amz-server-side-encryption-aws-kms-key-id");
    info.customerKeyMD5 = infoText(headers, "x-amz-server-side-encryption-customer-key-md5");
    info.checksumSHA256 = infoText(headers, "x-amz-checksum-sha256");
    info.checksumCRC32C = infoText(headers, "x-amz-checksum-crc32c");
    return info;
}

CS3ObjectInfo CS3ObjectInfo::fromObjectHeaders(const HeaderMap& headers)
{
    CS3ObjectInfo info = fromChangeHeaders(headers);
    info.size = infoNumber(headers, "content-length", -1);
    info.lastModified = infoTime(headers, "last-modified");
    info.contentType = infoText(headers, "content-type");
    info.cacheControl = infoText(headers, "cache-control");
    info.contentDisposition = infoText(headers, "content-disposition");
    info.contentEncoding = infoEncoding(headers);
    info.contentLanguage = infoText(headers, "content-language");
    info.expires = infoTime(headers, "expires");
    info.metadata = infoMetadata(headers);
    info.missingMetadata = infoNumber(headers, "x-amz-missing-meta", 0);
    info.tagCount = infoNumber(headers, "x-amz-tagging-count", 0);
    info.storageClass = infoText(headers, "x-amz-storage-class");
    return info;
}

} // namespace norla
