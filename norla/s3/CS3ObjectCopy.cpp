#include "norla/s3/CS3ObjectCopy.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/performWithRetries.h"
#include "norla/s3/CS3AnswerText.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/copySourceHeaders.h"
#include "norla/s3/lateErrors.h"
#include "norla/s3/multipartDocuments.h"
#include "norla/s3/requireClientAndRequest.h"
#include "norla/s3/uploadPartSize.h"

#include <algorithm>
#include <array>

namespace norla {

namespace {

constexpr char objectCopyClass[] = "CS3ObjectCopy";
constexpr long long mostCopiedAtOnce = 5LL << 30;
constexpr long long usualCopiedPart = 512LL << 20;

/// What the answer to a HEAD says of an object.
struct CCopiedObject {
    long long size = 0;
    kx::String eTag;
    CS3Call::Fields headers;
};

bool isHeaderOfObject(const kx::String& name)
{
    constexpr std::array names
        = {"cache-control", "content-disposition", "content-encoding", "content-language", "content-type", "expires"};
    return name.startsWith("x-amz-meta-") || std::any_of(names.begin(), names.end(), [&name](const char* known) {
        return name == kx::String::fromLatin1(known);
    });
}

CCopiedObject readCopiedObject(const CNetRequest& request, const CS3CopySource& source)
{
    CCopiedObject object;
    kx::String length;
    for (const auto& [name, value] : request.getResponseHeaderMap()) {
        if (name == "content-length")
            length = value;
        else if (name == "etag")
            object.eTag = value;
        else if (isHeaderOfObject(name))
            object.headers.emplace_back(name, value);
    }
    object.size = -1;
    try {
        object.size = kx::parseInt64(length, true);
    } catch (const kx::CError&) {
        object.size = -1; // told below, with the object's name
    }
    if (object.size < 0)
        throw kx::CError("The store has '" + length + "' for the size of '" + source.objectName + "' in the bucket '"
            + source.bucketName + "'.");
    return object;
}

void requireCopyNames(const CS3CopySource& source, const kx::String& bucketName, const kx::String& objectName)
{
    for (const kx::String& name : {source.bucketName, source.objectName, bucketName, objectName}) {
        if (name.isEmpty())
            throw kx::CInvalidArgError("no bucket name and no object name may be empty", objectCopyClass);
    }
}

void requireSameObject(const CS3CopySource& source, const kx::String& found)
{
    if (!source.eTag.isEmpty() && source.eTag != found)
        throw kx::CError("The object '" + source.objectName + "' in the bucket '" + source.bucketName
            + "' is another one: its ETag is " + found + ", and not " + source.eTag + ".");
}

CCopiedObject askForCopiedObject(
    CS3Client& client, CNetRequest& request, const CS3CopySource& source, const CS3Call::Fields& headers)
{
    CS3Call head;
    head.method = "HEAD";
    head.bucketName = source.bucketName;
    head.objectName = source.objectName;
    head.headers = headers;
    if (!source.versionId.isEmpty())
        head.parameters = {{"versionId", source.versionId}};
    client.performCall(request, head);
    CCopiedObject object = readCopiedObject(request, source);
    requireSameObject(source, object.eTag);
    return object;
}

} // namespace

CS3ObjectCopy::CS3ObjectCopy(CS3Client* client, CNetRequest* request, const CS3ObjectCopyOptions& options)
    : m_client(client)
    , m_request(request)
    , m_options(options)
{
    requireClientAndRequest(client, request, objectCopyClass);
    if (options.threshold < 0 || options.threshold > mostCopiedAtOnce)
        throw kx::CInvalidArgError(
            "threshold is " + kx::toString(options.threshold) + " bytes, and not 0 to 5 GiB", objectCopyClass);
    uploadPartSize(0, options.partSize);
}

CS3ObjectCopy::~CS3ObjectCopy() = default;

kx::String CS3ObjectCopy::copy(const CS3CopySource& source, const kx::String& bucketName, const kx::String& objectName)
{
    CS3MultipartOptions multipart = m_options.multipart;
    requireCopyNames(source, bucketName, objectName);
    const CCopiedObject found = askForCopiedObject(*m_client, *m_request, source, multipart.partHeaders);
    CS3CopySource same = source;
    if (same.eTag.isEmpty())
        same.eTag = found.eTag;
    if (found.size <= m_options.threshold)
        return copyAtOnce(same, bucketName, objectName);
    if (same.eTag.isEmpty() && same.versionId.isEmpty())
        throw kx::CError("The store tells no ETag of the object '" + source.objectName + "' in the bucket '"
            + source.bucketName + "', by which to see that its parts are of one.");
    if (multipart.headers.empty())
        multipart.headers = found.headers;
    CS3MultipartUpload upload(m_client, m_request, bucketName, objectName, multipart);
    upload.create();
    try {
        return copyByParts(same, found.size, upload);
    } catch (...) { // of callbacks, anything
        try {
            upload.abort();
        } catch (const std::exception& error) {
            kx::logError(error, "A copy by parts could not be aborted", kx::String());
        }
        throw;
    }
}

kx::String CS3ObjectCopy::copyAtOnce(
    const CS3CopySource& source, const kx::String& bucketName, const kx::String& objectName)
{
    CS3Call call;
    call.method = "PUT";
    call.bucketName = bucketName;
    call.objectName = objectName;
    call.headers = copySourceHeaders(*m_request, source);
    const CS3MultipartOptions& more = m_options.multipart;
    if (!more.headers.empty())
        call.headers.emplace_back("x-amz-metadata-directive", "REPLACE");
    for (const CS3Call::Fields& fields : {more.headers, more.partHeaders, more.completeHeaders})
        call.headers.insert(call.headers.end(), fields.begin(), fields.end());
    const auto answer = kx::newObj<CS3AnswerText>();
    call.sink = answer;
    kx::String eTag;
    performWithRetries(*m_request, policyForLateErrors(*m_client, m_options.retries), [&] {
        m_client->performCall(*m_request, call);
        eTag = eTagIn(answer->get(), "CopyObjectResult");
    });
    return eTag;
}

kx::String CS3ObjectCopy::copyByParts(const CS3CopySource& source, long long size, CS3MultipartUpload& upload)
{
    const CRetryPolicy policy = policyForLateErrors(*m_client, m_options.retries);
    const long long least = uploadPartSize(size, m_options.partSize);
    const long long partSize = m_options.partSize == 0 ? std::max(least, usualCopiedPart) : least;
    for (long long start = 0; start < size; start += partSize) {
        const int number = static_cast<int>(start / partSize) + 1;
        const long long length = std::min(partSize, size - start);
        performWithRetries(*m_request, policy, [&] { upload.uploadPartCopy(number, source, start, length); });
        if (m_options.onProgress)
            m_options.onProgress(start + length, size);
    }
    // Not all stores look at the condition of each part.
    askForCopiedObject(*m_client, *m_request, source, m_options.multipart.partHeaders);
    kx::String eTag;
    performWithRetries(*m_request, policy, [&] { eTag = upload.complete(); });
    return eTag;
}

} // namespace norla
