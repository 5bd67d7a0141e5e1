#include "norla/s3/CS3BatchDelete.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3DeleteAnswer.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3XMLWriter.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/requireClientAndRequest.h"

#include <iterator>
#include <utility>

namespace norla {

namespace {

/// Whether a failure is one of the object rather than of bucket, store or connection.
bool isFailureOfOneObject(const CS3Error& error)
{
    constexpr int firstServerFailure = 500;
    return error.getCode() < firstServerFailure && error.getS3Code() != "NoSuchBucket";
}

} // namespace

CS3BatchDelete::CS3BatchDelete(CS3Client* client, CNetRequest* request, const kx::String& bucketName)
    : m_client(client)
    , m_request(request)
    , m_bucketName(bucketName)
{
    requireClientAndRequest(client, request, "CS3BatchDelete");
    if (bucketName.isEmpty())
        throw kx::CInvalidArgError("bucket name must not be empty", "CS3BatchDelete::CS3BatchDelete");
    startDocument();
}

CS3BatchDelete::~CS3BatchDelete() = default;

void CS3BatchDelete::add(const kx::String& key, const kx::String& versionId)
{
    constexpr size_t mostObjects = 1000;     // of a request
    constexpr size_t longEnough = 1'000'000; // some stores take documents of no more than 1 MiB
    if (key.isEmpty())
        throw kx::CInvalidArgError("object name must not be empty", "CS3BatchDelete::add");
    for (const kx::String& text : {key, versionId})
        text.toUTF8();
    const CItem item{key, versionId};
    if (!CS3XMLWriter::canWrite(key) || !CS3XMLWriter::canWrite(versionId)) {
        removeAlone(item);
        return;
    }
    if (m_waiting.size() == mostObjects || m_document->getSize() > longEnough)
        finish();
    m_waiting.push_back(item);
    m_document->begin("Object");
    m_document->add("Key", key);
    if (!versionId.isEmpty())
        m_document->add("VersionId", versionId);
    m_document->end();
}

void CS3BatchDelete::finish()
{
    if (m_waiting.empty())
        return;
    kx::TArray<CS3DeleteFailure> failures = sendWaiting();
    const size_t removed = m_waiting.size() - failures.size();
    m_waiting.clear();
    startDocument();
    count(removed, std::move(failures));
}

kx::TArray<CS3DeleteFailure> CS3BatchDelete::takeFailures()
{
    return std::exchange(m_failures, {});
}

void CS3BatchDelete::startDocument()
{
    m_document = std::make_unique<CS3XMLWriter>("Delete");
}

kx::TArray<CS3DeleteFailure> CS3BatchDelete::sendWaiting()
{
    CS3XMLWriter document = *m_document;
    document.add("Quiet", "true"); // failures alone are told
    CS3Call call;
    call.method = "POST";
    call.mayRepeat = true;
    call.bucketName = m_bucketName;
    call.parameters.emplace_back("delete", kx::String());
    setS3Document(call, document.finish());
    CS3DeleteAnswer answer(m_bucketName);
    for (const CItem& item : m_waiting)
        answer.expect(item.key, item.versionId);
    const CS3Document result = performForDocument(
        *m_client, *m_request, call, "DeleteResult", "'delete objects' result of the bucket '" + m_bucketName + "'");
    return answer.failuresIn(result.getRoot());
}

void CS3BatchDelete::removeAlone(const CItem& item)
{
    CS3Call call;
    call.method = "DELETE";
    call.bucketName = m_bucketName;
    call.objectName = item.key;
    if (!item.versionId.isEmpty())
        call.parameters.emplace_back("versionId", item.versionId);
    kx::TArray<CS3DeleteFailure> failures;
    try {
        performForNothing(*m_client, *m_request, call);
    } catch (const CS3Error& error) {
        if (!isFailureOfOneObject(error))
            throw;
        if (error.getS3Code() != "NoSuchKey")
            failures.push_back({item.key, item.versionId, error.getS3Code(), error.getMessage()});
    }
    const size_t removed = failures.empty() ? 1 : 0;
    count(removed, std::move(failures));
}

void CS3BatchDelete::count(size_t removed, kx::TArray<CS3DeleteFailure> failures)
{
    m_removedCount += static_cast<long long>(removed);
    m_failedCount += static_cast<long long>(failures.size());
    m_failures.insert(
        m_failures.end(), std::make_move_iterator(failures.begin()), std::make_move_iterator(failures.end()));
    if (m_progress)
        m_progress(m_removedCount, m_failedCount);
}

} // namespace norla
