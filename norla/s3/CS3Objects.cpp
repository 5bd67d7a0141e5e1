#include "norla/s3/CS3Objects.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "norla/s3/CObjectPart.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3BufferSink.h"
#include "norla/s3/CS3CheckingSink.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3DigestingSource.h"
#include "norla/s3/CS3DocumentSink.h"
#include "norla/s3/documentTime.h"
#include "norla/s3/hexSHA256.h"
#include "norla/s3/objectCall.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/requireClientAndRequest.h"
#include "norla/s3/requireSent.h"

#include <optional>
#include <utility>

namespace norla {

namespace {

bool isOfStoresKey(const CS3Encryption& encryption)
{
    return encryption.customerKey.empty() && (encryption.algorithm.isEmpty() || encryption.algorithm == "AES256");
}

/// Adds the checksum that the store is to check.
void addChecksum(CS3Call& call, CS3Checksum kind)
{
    if (kind == CS3Checksum::None)
        return;
    CS3BodyDigest digest = CS3DigestingSource::digestOf(*call.source, call.sourceSize, kind);
    call.headers.emplace_back(nameOfChecksumHeader(kind), digest.toBase64());
    if (kind == CS3Checksum::SHA256)
        call.sourceSHA256 = digest.toHex().toUTF8();
}

void requireSameChecksum(const CS3Call& call, const CNetRequest::HeaderMap& answer, CS3Checksum kind)
{
    const std::optional<kx::String> said
        = kind == CS3Checksum::None || kind == CS3Checksum::MD5 ? std::nullopt : CS3BodyDigest::saidIn(answer, kind);
    for (const auto& [name, value] : call.headers) {
        if (said && name == nameOfChecksumHeader(kind) && value != *said)
            throw kx::CError("The bytes of " + textOf(call) + " are not those that the store speaks of: '" + name
                + "' is '" + value + "' and not '" + *said + "'.");
    }
}

/// @throws kx::CInvalidArgError for a bound that is none
void requireBound(long long mostBytes)
{
    if (mostBytes < -1)
        throw kx::CInvalidArgError("mostBytes must not be less than -1: " + kx::toString(mostBytes), "CS3Objects::get");
}

} // namespace

CS3Objects::CS3Objects(CS3Client* client, CNetRequest* request)
    : m_client(client)
    , m_request(request)
{
    requireClientAndRequest(client, request, "CS3Objects");
}

CS3Objects::~CS3Objects() = default;

CS3ObjectInfo CS3Objects::put(
    const kx::String& bucketName, const kx::String& objectName, std::string_view bytes, const CS3PutOptions& options)
{
    const auto buffer = kx::newObj<CNetRequest::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    const auto source = kx::newObj<CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(buffer).get());
    CS3Call call = putCall(bucketName, objectName, options);
    call.source = source;
    call.sourceSize = static_cast<long long>(bytes.size());
    call.sourceSHA256 = hexSHA256(bytes);
    return performPut(call, options, options.checksum.value_or(CS3Checksum::MD5));
}

CS3ObjectInfo CS3Objects::put(const kx::String& bucketName, const kx::String& objectName,
    CNetRequest::IDataSource* source, long long size, const CS3PutOptions& options)
{
    if (!source)
        throw kx::CInvalidArgError("source is null", "CS3Objects::put");
    CS3Call call = putCall(bucketName, objectName, options);
    call.source = source;
    call.sourceSize = size;
    return performPut(call, options, options.checksum.value_or(CS3Checksum::None));
}

CS3ObjectInfo CS3Objects::performPut(CS3Call& call, const CS3PutOptions& options, CS3Checksum checksum)
{
    if (call.sourceSize < 0)
        throw kx::CInvalidArgError("size must not be negative: " + kx::toString(call.sourceSize), "CS3Objects::put");
    addChecksum(call, checksum);
    kx::P<CS3DigestingSource> sent;
    if (options.verify && isOfStoresKey(options.encryption)) {
        sent = kx::newObj<CS3DigestingSource>(call.source, call.sourceSize);
        call.source = sent;
    }
    performForNothing(*m_client, *m_request, call);
    requireSent(*m_request, call.sourceSize, textOf(call));
    const auto& answer = m_request->getResponseHeaderMap();
    if (sent)
        sent->requireAsSaid(answer, textOf(call));
    if (options.verify)
        requireSameChecksum(call, answer, checksum);
    CS3ObjectInfo info = CS3ObjectInfo::fromChangeHeaders(answer);
    info.size = call.sourceSize;
    return info;
}

CS3ObjectInfo CS3Objects::get(const kx::String& bucketName, const kx::String& objectName, CNetRequest::IDataSink* sink,
    const CS3GetOptions& options)
{
    constexpr char functionName[] = "CS3Objects::get";
    if (!sink)
        throw kx::CInvalidArgError("sink is null", functionName);
    requireBound(options.mostBytes);
    const CObjectPart part(options.start, options.length, functionName);
    if (part.isNothing())
        return head(bucketName, objectName, options);
    CS3Call call = getCall("GET", bucketName, objectName, options, functionName);
    if (!part.isWhole())
        call.headers.emplace_back("Range", part.toRange());
    const auto checking = kx::newObj<CS3CheckingSink>(sink, options, textOf(call));
    call.sink = checking;
    m_client->performCall(*m_request, call);
    CS3ObjectInfo info = CS3ObjectInfo::fromObjectHeaders(m_request->getResponseHeaderMap());
    info.size = checking->getTotal();
    return info;
}

CS3ObjectInfo CS3Objects::get(const kx::String& bucketName, const kx::String& objectName, CNetRequest::Buffer* bytes,
    const CS3GetOptions& options)
{
    if (!bytes)
        throw kx::CInvalidArgError("bytes is null", "CS3Objects::get");
    return get(bucketName, objectName, kx::newObj<CS3BufferSink>(bytes).get(), options);
}

CS3ObjectInfo CS3Objects::head(const kx::String& bucketName, const kx::String& objectName, const CS3GetOptions& options)
{
    m_client->performCall(*m_request, getCall("HEAD", bucketName, objectName, options, "CS3Objects::get"));
    return CS3ObjectInfo::fromObjectHeaders(m_request->getResponseHeaderMap());
}

CS3ObjectInfo CS3Objects::remove(
    const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId)
{
    performForNothing(
        *m_client, *m_request, objectCall("DELETE", bucketName, objectName, versionId, "CS3Objects::remove"));
    return CS3ObjectInfo::fromChangeHeaders(m_request->getResponseHeaderMap());
}

CS3ObjectInfo CS3Objects::copy(const kx::String& sourceBucketName, const kx::String& sourceObjectName,
    const kx::String& bucketName, const kx::String& objectName, const CS3CopyOptions& options)
{
    CS3Call call = copyCall(*m_request, {sourceBucketName, sourceObjectName}, {bucketName, objectName}, options);
    const auto answer = kx::newObj<CS3DocumentSink>();
    call.sink = answer;
    m_client->performCall(*m_request, call);
    const kx::P<CS3CopyObjectResult> result = copyResult(answer->getBytes(), call);
    CS3ObjectInfo info = CS3ObjectInfo::fromChangeHeaders(m_request->getResponseHeaderMap());
    info.eTag = result->getETag();
    info.lastModified = documentTime(result->getLastModified());
    return info;
}

} // namespace norla
