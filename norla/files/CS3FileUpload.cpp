#include "norla/files/CS3FileUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/files/CS3UploadWay.h"
#include "norla/s3/CS3Client.h"

#include <utility>

namespace norla {

namespace {

constexpr char s3UploadClass[] = "CS3FileUpload";

void requireNotNegative(const char* name, long long value)
{
    if (value < 0)
        throw kx::CInvalidArgError(
            kx::String::fromLatin1(name) + " is " + kx::toString(value) + ", and not 0 or more", s3UploadClass);
}

void requireUploadOptions(const CS3FileUploadOptions& options)
{
    constexpr long long mostOfPut = 5LL << 30;
    requireNotNegative("threshold", options.threshold);
    if (options.threshold > mostOfPut)
        throw kx::CInvalidArgError(
            "threshold is " + kx::toString(options.threshold) + ", and one PUT takes 5 GiB at most", s3UploadClass);
    if (options.atOnce < 1)
        throw kx::CInvalidArgError("atOnce is " + kx::toString(options.atOnce) + ", and not 1 or more", s3UploadClass);
    requireNotNegative("memory", options.memory);
    requireNotNegative("partDeadline", options.partDeadline.getMicroseconds());
    if (options.object.checksum || !options.object.verify)
        throw kx::CInvalidArgError("a file is sent with its MD5: checksum and verify cannot be chosen", s3UploadClass);
    const bool hasCondition = !options.object.ifMatch.isEmpty() || !options.object.ifNoneMatch.isEmpty();
    if (hasCondition && !options.overwrite)
        throw kx::CInvalidArgError("conditions count where overwrite is set", s3UploadClass);
}

/// What any upload of a file is told.
CFileUploadOptions plainOptions(const CS3FileUploadOptions& options)
{
    CFileUploadOptions plain;
    plain.overwrite = options.overwrite;
    plain.resume = options.resume;
    plain.keepPart = options.keepPart;
    plain.retries = options.retries;
    plain.pool = options.pool;
    plain.onProgress = options.onProgress;
    plain.executor = options.executor;
    return plain;
}

std::shared_ptr<CS3UploadWay> wayOf(
    CS3Client* client, const kx::String& bucketName, const kx::String& objectName, const CS3FileUploadOptions& options)
{
    if (!client)
        throw kx::CInvalidArgError("client is null", s3UploadClass);
    requireUploadOptions(options);
    return std::make_shared<CS3UploadWay>(*client, bucketName, objectName, options);
}

} // namespace

CS3FileUpload::CS3FileUpload(CS3Client* client, const Path& path, const kx::String& bucketName,
    const kx::String& objectName, const Options& options)
    : CS3FileUpload(wayOf(client, bucketName, objectName, options), path, options)
{
}

CS3FileUpload::CS3FileUpload(std::shared_ptr<CS3UploadWay> way, const Path& path, const Options& options)
    : CFileUpload(way, path, plainOptions(options))
    , m_s3Way(std::move(way))
{
}

CS3FileUpload::~CS3FileUpload() = default;

const kx::String& CS3FileUpload::getETag() const noexcept
{
    return m_s3Way->getETag();
}

const kx::String& CS3FileUpload::getUploadId() const noexcept
{
    return m_s3Way->getUploadId();
}

} // namespace norla
