#include "norla/s3/CS3ParallelUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CFileSource.h"
#include "norla/s3/CS3UploadRun.h"
#include "norla/s3/CS3UploadSignals.h"
#include "norla/s3/requireClientAndRequest.h"
#include "norla/s3/uploadPartSize.h"

namespace norla {

namespace {

constexpr char parallelClass[] = "CS3ParallelUpload";

void requireOptions(const CS3ParallelUploadOptions& options)
{
    constexpr long long nothing = 0;
    if (options.atOnce < 1)
        throw kx::CInvalidArgError("atOnce is " + kx::toString(options.atOnce) + ", and not 1 or more", parallelClass);
    if (options.memory < 0)
        throw kx::CInvalidArgError("memory is " + kx::toString(options.memory) + ", and not 0 or more", parallelClass);
    if (options.partDeadline.getMicroseconds() < 0)
        throw kx::CInvalidArgError("partDeadline is negative", parallelClass);
    uploadPartSize(nothing, options.partSize);
}

} // namespace

CS3ParallelUpload::CS3ParallelUpload(CS3Client* client, CNetRequest* request, const CS3ParallelUploadOptions& options)
    : m_client(client)
    , m_request(request)
    , m_options(options)
    , m_signals(std::make_shared<CS3UploadSignals>())
{
    requireClientAndRequest(client, request, parallelClass);
    requireOptions(options);
}

CS3ParallelUpload::~CS3ParallelUpload() = default;

kx::String CS3ParallelUpload::upload(
    const CNetRequest::Path& path, const kx::String& bucketName, const kx::String& objectName)
{
    const auto source = kx::newObj<CFileSource>(path);
    return upload(source.get(), bucketName, objectName);
}

kx::String CS3ParallelUpload::upload(
    CNetRequest::IDataSource* source, const kx::String& bucketName, const kx::String& objectName)
{
    if (!source)
        throw kx::CInvalidArgError("source is null", parallelClass);
    m_uploadId = kx::String();
    CS3UploadRun run(*m_client, *m_request, m_options, m_signals, *source, bucketName, objectName);
    try {
        return run.run();
    } catch (...) { // of callbacks, anything
        run.end();
        m_uploadId = run.getUploadId();
        throw;
    }
}

void CS3ParallelUpload::cancel()
{
    m_signals->cancel();
}

} // namespace norla
