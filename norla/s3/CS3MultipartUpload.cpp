#include "norla/s3/CS3MultipartUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "norla/core/CStreamDataSource.h"
#include "norla/s3/CS3AnswerText.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/copySourceHeaders.h"
#include "norla/s3/multipartDocuments.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/requireClientAndRequest.h"
#include "norla/s3/requireSent.h"

#include <limits>

namespace norla {

namespace {

constexpr char multipartClass[] = "CS3MultipartUpload";

void requirePartNumber(int number)
{
    if (number < 1 || number > mostS3Parts)
        throw kx::CInvalidArgError(
            "the number of a part is " + kx::toString(number) + ", and not from 1 to " + kx::toString(mostS3Parts),
            multipartClass);
}

void requirePartsInOrder(const kx::TArray<CS3UploadedPart>& parts)
{
    int last = 0;
    for (const CS3UploadedPart& part : parts) {
        requirePartNumber(part.number);
        if (part.number <= last)
            throw kx::CInvalidArgError(
                "part " + kx::toString(part.number) + " stands behind part " + kx::toString(last), multipartClass);
        requireETag(part.eTag, "part " + kx::toString(part.number));
        last = part.number;
    }
}

void addFields(CS3Call::Fields& fields, const CS3Call::Fields& more)
{
    fields.insert(fields.end(), more.begin(), more.end());
}

kx::String answerHeader(const CNetRequest& request, const kx::String& name)
{
    const auto found = request.getResponseHeaderMap().find(name);
    return found == request.getResponseHeaderMap().end() ? kx::String() : found->second;
}

kx::String withoutQuotes(const kx::String& eTag)
{
    return eTag.size() > 1 && eTag.startsWith("\"") && eTag.endsWith("\"") ? eTag.substr(1, eTag.size() - 2) : eTag;
}

} // namespace

CS3MultipartUpload::CS3MultipartUpload(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
    const kx::String& objectName, const CS3MultipartOptions& options)
    : m_client(client)
    , m_request(request)
    , m_bucketName(bucketName)
    , m_objectName(objectName)
    , m_options(options)
{
    requireClientAndRequest(client, request, multipartClass);
    if (bucketName.isEmpty() || objectName.isEmpty())
        throw kx::CInvalidArgError("neither bucket name nor object name may be empty", multipartClass);
}

CS3MultipartUpload::~CS3MultipartUpload() = default;

void CS3MultipartUpload::create()
{
    if (!m_id.isEmpty())
        throw kx::CError("The object '" + m_objectName + "' has an upload already.");
    CS3Call call = callFor("POST", {{"uploads", ""}});
    call.headers = m_options.headers;
    addFields(call.headers, m_options.partHeaders);
    m_id = uploadIdIn(documentFor(call));
}

void CS3MultipartUpload::attach(const kx::String& uploadId)
{
    if (uploadId.isEmpty())
        throw kx::CInvalidArgError("the id of an upload must not be empty", multipartClass);
    m_id = uploadId;
    m_parts.clear();
}

kx::String CS3MultipartUpload::uploadPart(int number, const void* data, size_t size)
{
    const auto bytes = kx::newObj<CNetRequest::Buffer>();
    bytes->append(static_cast<const unsigned char*>(data), size);
    const auto source = kx::newObj<CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get());
    return uploadPart(number, source.get(), static_cast<long long>(size));
}

kx::String CS3MultipartUpload::uploadPart(int number, CNetRequest::IDataSource* source, long long size)
{
    if (!source || size < 0)
        throw kx::CInvalidArgError("a part needs a source and a size", multipartClass);
    const CS3PartDigest digest = CS3PartDigest::of(*source, size);
    prepareUploadPart(*m_request, number, source, digest);
    m_client->performRequest(*m_request);
    return finishUploadPart(*m_request, number, digest);
}

void CS3MultipartUpload::prepareUploadPart(
    CNetRequest& request, int number, CNetRequest::IDataSource* source, const CS3PartDigest& digest)
{
    if (!source)
        throw kx::CInvalidArgError("a part needs a source", multipartClass);
    CS3Call call = partCall(number);
    call.headers.emplace_back("Content-MD5", digest.contentMD5);
    call.source = kx::P<CNetRequest::IDataSource>(source);
    call.sourceSize = digest.size;
    call.sourceSHA256 = digest.sha256;
    call.sink = kx::newObj<CS3AnswerText>();
    m_client->prepareCall(request, call);
}

kx::String CS3MultipartUpload::finishUploadPart(CNetRequest& request, int number, const CS3PartDigest& digest)
{
    requireSent(request, digest.size, "part " + kx::toString(number));
    const kx::String eTag = answerHeader(request, "etag");
    const auto said = CS3BodyDigest::saidIn(request.getResponseHeaderMap(), CS3Checksum::MD5);
    if (said && said->toUTF8() != digest.md5)
        throw kx::CError("Part " + kx::toString(number) + " of '" + m_objectName + "' has the ETag " + eTag
            + " at the store, and the MD5 " + kx::String::fromUTF8(digest.md5) + " here.");
    return keepPart({number, eTag, digest.size, md5InETag(eTag) == digest.md5 ? digest.md5 : std::string()});
}

kx::String CS3MultipartUpload::uploadPartCopy(
    int number, const CS3CopySource& source, long long start, long long length)
{
    if (start < 0 || length < -1 || length == 0 || (length == -1 && start != 0)
        || length > std::numeric_limits<long long>::max() - start)
        throw kx::CInvalidArgError(
            "there is no such range as " + kx::toString(length) + " bytes from " + kx::toString(start) + " on",
            multipartClass);
    CS3Call call = partCall(number);
    addFields(call.headers, copySourceHeaders(*m_request, source));
    if (length > 0)
        call.headers.emplace_back(
            "x-amz-copy-source-range", "bytes=" + kx::toString(start) + "-" + kx::toString(start + length - 1));
    return keepPart({number, eTagIn(documentFor(call), "CopyPartResult"), length});
}

kx::TArray<CS3UploadedPart> CS3MultipartUpload::listParts()
{
    requireId();
    kx::TArray<CS3UploadedPart> parts;
    int marker = 0;
    do {
        CS3Call call = callFor("GET", {});
        if (m_options.partsPerPage > 0)
            call.parameters.emplace_back("max-parts", kx::toString(m_options.partsPerPage));
        if (marker > 0)
            call.parameters.emplace_back("part-number-marker", kx::toString(marker));
        call.parameters.emplace_back("uploadId", m_id);
        const CS3PartPage page = partsIn(documentFor(call), marker);
        parts.insert(parts.end(), page.parts.begin(), page.parts.end());
        marker = page.nextMarker;
    } while (marker > 0);
    m_parts.clear();
    for (const CS3UploadedPart& part : parts)
        m_parts[part.number] = part;
    return parts;
}

kx::String CS3MultipartUpload::complete()
{
    kx::TArray<CS3UploadedPart> parts;
    for (const auto& [number, part] : m_parts)
        parts.push_back(part);
    return complete(parts);
}

kx::String CS3MultipartUpload::complete(const kx::TArray<CS3UploadedPart>& parts)
{
    requireId();
    if (parts.empty())
        throw kx::CError("The upload of '" + m_objectName + "' has no parts.");
    requirePartsInOrder(parts);
    CS3Call call = callFor("POST", {{"uploadId", m_id}});
    call.mayRepeat = true; // what an attempt whose answer was lost has completed is recognized
    call.headers = m_options.completeHeaders;
    call.headers.emplace_back("Content-Type", "application/xml");
    call.body = completionOf(parts);
    kx::String eTag;
    try {
        eTag = completedETagIn(documentFor(call));
        if (eTag.isEmpty()) {
            eTag = eTagOfObject(); // not compared: it may be that of somebody who was faster
        } else {
            forget();
            requireETagOfParts(
                eTag, parts, CS3BodyDigest::isETagOfBytes(m_request->getResponseHeaderMap()), m_objectName);
        }
    } catch (const kx::CError& error) {
        const std::string expected = eTagOfParts(parts);
        if (!m_client->isNotFoundError(error) || expected.empty())
            throw;
        eTag = eTagOfObject();
        if (withoutQuotes(eTag) != kx::String::fromUTF8(expected))
            throw;
    }
    forget();
    return eTag;
}

void CS3MultipartUpload::abort()
{
    requireId();
    try {
        performForNothing(*m_client, *m_request, callFor("DELETE", {{"uploadId", m_id}}));
    } catch (const kx::CError& error) {
        const auto* const explained = dynamic_cast<const CS3Error*>(&error);
        const bool isGone = explained && explained->getS3Code() == "NoSuchUpload"; // also with another status
        if (!isGone && !m_client->isNotFoundError(error))
            throw;
    }
    forget();
}

void CS3MultipartUpload::forget() noexcept
{
    m_id = kx::String();
    m_parts.clear();
}

CS3Call CS3MultipartUpload::callFor(const kx::String& method, const CS3Call::Fields& parameters) const
{
    CS3Call call;
    call.method = method;
    call.bucketName = m_bucketName;
    call.objectName = m_objectName;
    call.parameters = parameters;
    return call;
}

CS3Call CS3MultipartUpload::partCall(int number) const
{
    requireId();
    requirePartNumber(number);
    CS3Call call = callFor("PUT", {{"partNumber", kx::toString(number)}, {"uploadId", m_id}});
    call.headers = m_options.partHeaders;
    return call;
}

std::string CS3MultipartUpload::documentFor(CS3Call& call)
{
    const auto answer = kx::newObj<CS3AnswerText>();
    call.sink = answer;
    m_client->performCall(*m_request, call);
    return answer->get();
}

void CS3MultipartUpload::requireId() const
{
    if (m_id.isEmpty())
        throw kx::CError("The object '" + m_objectName + "' has no upload: neither create() nor attach() was called.");
}

kx::String CS3MultipartUpload::keepPart(const CS3UploadedPart& part)
{
    requireETag(part.eTag, "part " + kx::toString(part.number) + " of '" + m_objectName + "'");
    m_parts[part.number] = part;
    return part.eTag;
}

// What the store says of the object is not its word on the upload: no failure here hides that.
kx::String CS3MultipartUpload::eTagOfObject()
{
    CS3Call call = callFor("HEAD", {});
    call.headers = m_options.partHeaders;
    try {
        m_client->performCall(*m_request, call);
    } catch (const kx::CError&) {
        return {};
    }
    return answerHeader(*m_request, "etag");
}

} // namespace norla
