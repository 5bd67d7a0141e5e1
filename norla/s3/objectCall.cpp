#include "norla/s3/objectCall.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3HeaderFields.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

constexpr char putFunction[] = "CS3Objects::put";
constexpr char copyFunction[] = "CS3Objects::copy";

bool hasContent(const CS3PutOptions& options)
{
    return !(options.contentType + options.cacheControl + options.contentDisposition + options.contentEncoding
               + options.contentLanguage)
                .isEmpty()
        || options.expires.isSet() || !options.metadata.empty();
}

void requireEffect(const CS3CopyOptions& options)
{
    if (!options.replaceMetadata && hasContent(options.target))
        throw kx::CInvalidArgError(
            "content headers and metadata of the copy count where replaceMetadata is set", copyFunction);
    if (!options.replaceTags && !options.target.tags.empty())
        throw kx::CInvalidArgError("tags of the copy count where replaceTags is set", copyFunction);
}

kx::String checksumAlgorithm(CS3Checksum kind)
{
    switch (kind) {
    case CS3Checksum::MD5:
        throw kx::CInvalidArgError("a store makes no MD5 for a copy", copyFunction);
    case CS3Checksum::SHA256:
        return "SHA256";
    case CS3Checksum::CRC32C:
        return "CRC32C";
    case CS3Checksum::None:
        break;
    }
    return {};
}

/// Stores keep a connection open by white space, which no XML declaration may follow.
std::string_view withoutLeadingSpace(std::string_view bytes)
{
    return bytes.substr(std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size()));
}

kx::P<CS3CopyObjectResult> readCopyResult(std::string_view answer, const CS3Call& call)
{
    constexpr size_t longest = 1 << 20; // it says when, and which ETag
    const std::string_view document = withoutLeadingSpace(answer);
    try {
        if (document.size() > longest)
            throw kx::CError("it has " + kx::toString(static_cast<long long>(document.size())) + " bytes.");
        return kx::newObj<CS3CopyObjectResult>(document.data(), static_cast<int>(document.size()));
    } catch (const kx::CError& error) {
        throw kx::CError("The store's answer to the copy to " + textOf(call) + " is none: " + error.getMessage(), {},
            -1, {}, error.clone());
    }
}

} // namespace

kx::String textOf(const CS3Call& call)
{
    return "the object '" + call.objectName + "' in the bucket '" + call.bucketName + "'";
}

CS3Call objectCall(const kx::String& method, const kx::String& bucketName, const kx::String& objectName,
    const kx::String& versionId, const kx::String& functionName)
{
    if (bucketName.isEmpty() || objectName.isEmpty())
        throw kx::CInvalidArgError("neither bucket name nor object name may be empty", functionName);
    CS3Call call;
    call.method = method;
    call.bucketName = bucketName;
    call.objectName = objectName;
    if (!versionId.isEmpty())
        call.parameters.emplace_back("versionId", versionId);
    return call;
}

CS3Call getCall(const kx::String& method, const kx::String& bucketName, const kx::String& objectName,
    const CS3GetOptions& options, const kx::String& functionName)
{
    CS3Call call = objectCall(method, bucketName, objectName, options.versionId, functionName);
    CS3HeaderFields headers(functionName);
    headers.addConditions(options.conditions, {});
    headers.addCustomerKey(options.customerKey, {});
    if (options.verify)
        headers.add("x-amz-checksum-mode", "ENABLED");
    call.headers = std::move(headers.fields());
    call.headers.insert(call.headers.end(), options.headers.begin(), options.headers.end());
    return call;
}

CS3Call::Fields putHeaders(const CS3PutOptions& options)
{
    CS3HeaderFields headers(putFunction);
    headers.addContent(options);
    headers.addTags(options);
    headers.addStorage(options);
    return std::move(headers.fields());
}

CS3Call putCall(const kx::String& bucketName, const kx::String& objectName, const CS3PutOptions& options)
{
    CS3Call call = objectCall("PUT", bucketName, objectName, {}, putFunction);
    call.headers = putHeaders(options);
    return call;
}

CS3Call copyCall(
    CNetRequest& request, const CS3ObjectName& source, const CS3ObjectName& target, const CS3CopyOptions& options)
{
    CS3Call call = objectCall("PUT", target.bucketName, target.objectName, {}, copyFunction);
    if (source.bucketName.isEmpty() || source.objectName.isEmpty())
        throw kx::CInvalidArgError("neither bucket name nor object name of the source may be empty", copyFunction);
    requireEffect(options);
    const kx::String version
        = options.sourceVersionId.isEmpty() ? kx::String() : "?versionId=" + request.urlEscape(options.sourceVersionId);
    CS3HeaderFields headers(copyFunction);
    headers.add("x-amz-copy-source",
        "/" + request.urlEscape(source.bucketName) + "/" + request.urlEscape(source.objectName) + version);
    headers.addConditions(options.sourceConditions, "x-amz-copy-source-");
    headers.addCustomerKey(options.sourceCustomerKey, "copy-source-");
    if (options.replaceMetadata) {
        headers.add("x-amz-metadata-directive", "REPLACE");
        headers.addContent(options.target);
    }
    if (options.replaceTags) {
        headers.add("x-amz-tagging-directive", "REPLACE");
        headers.addTags(options.target);
    }
    headers.add("x-amz-checksum-algorithm", checksumAlgorithm(options.target.checksum.value_or(CS3Checksum::None)));
    headers.addStorage(options.target);
    call.headers = std::move(headers.fields());
    return call;
}

kx::P<CS3CopyObjectResult> copyResult(std::string_view answer, const CS3Call& call)
{
    constexpr int noHTTPFailure = 0;
    kx::P<CS3CopyObjectResult> result = readCopyResult(answer, call);
    if (const auto response = result->getErrorResponse())
        throw CS3Error(*response, noHTTPFailure);
    return result;
}

} // namespace norla
