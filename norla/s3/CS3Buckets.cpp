#include "norla/s3/CS3Buckets.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3XMLWriter.h"
#include "norla/s3/hexSHA256.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/requireClientAndRequest.h"

#include <algorithm>
#include <set>
#include <string>

namespace norla {

namespace {

CS3Call callOfBucket(const char* method, const kx::String& bucketName, const kx::String& parameter = {})
{
    if (bucketName.isEmpty())
        throw kx::CInvalidArgError("bucket name must not be empty", "CS3Buckets");
    CS3Call call;
    call.method = kx::String::fromLatin1(method);
    call.bucketName = bucketName;
    if (!parameter.isEmpty())
        call.parameters.emplace_back(parameter, kx::String());
    return call;
}

kx::String titleOfBucket(const kx::String& what, const kx::String& bucketName)
{
    return "'" + what + "' result of the bucket '" + bucketName + "'";
}

CS3ListedBucket readBucket(const CXMLElement& bucket)
{
    constexpr size_t longest = 1024; // a list may have a million of them
    constexpr size_t shown = 100;
    CS3ListedBucket listed;
    bucket.forEachElement([&listed](const CXMLElement& element) {
        if (element.isNamed("Name"))
            listed.name = element.getText();
        else if (element.isNamed("CreationDate"))
            listed.creationDate = element.getText();
    });
    if (listed.name.isEmpty())
        throw kx::CError("Error parsing Amazon S3 'list buckets' result: a bucket without a name.");
    if (std::max(listed.name.size(), listed.creationDate.size()) > longest)
        throw kx::CError(
            "Error parsing Amazon S3 'list buckets' result: a bucket whose name or date has more than 1024 "
            "characters: '"
            + listed.name.substr(0, shown) + "...'.");
    return listed;
}

} // namespace

CS3Buckets::CS3Buckets(CS3Client* client, CNetRequest* request)
    : m_client(client)
    , m_request(request)
{
    requireClientAndRequest(client, request, "CS3Buckets");
}

CS3Buckets::~CS3Buckets() = default;

void CS3Buckets::create(const kx::String& bucketName, const CS3BucketOptions& options)
{
    CS3Call call = callOfBucket("PUT", bucketName);
    if (!options.acl.isEmpty())
        call.headers.emplace_back("x-amz-acl", options.acl);
    if (options.objectLock)
        call.headers.emplace_back("x-amz-bucket-object-lock-enabled", "true");
    if (!options.region.isEmpty()) {
        CS3XMLWriter writer("CreateBucketConfiguration");
        writer.add("LocationConstraint", options.region);
        setS3Document(call, writer.finish());
    }
    performForNothing(*m_client, *m_request, call);
}

void CS3Buckets::remove(const kx::String& bucketName)
{
    performForNothing(*m_client, *m_request, callOfBucket("DELETE", bucketName));
}

bool CS3Buckets::exists(const kx::String& bucketName)
{
    try {
        performForNothing(*m_client, *m_request, callOfBucket("HEAD", bucketName));
        return true;
    } catch (const kx::CError& error) {
        if (m_client->isNotFoundError(error))
            return false;
        throw;
    }
}

kx::TArray<CS3ListedBucket> CS3Buckets::list()
{
    constexpr size_t most = 1'000'000;
    kx::TArray<CS3ListedBucket> buckets;
    std::set<std::string> tokens; // digests, however long the tokens are
    kx::String token;
    do {
        token = addBuckets(token, buckets);
        if (!token.isEmpty() && !tokens.insert(hexSHA256(token.toUTF8())).second)
            throw kx::CError("The list of buckets does not end: it came to the marker '" + token + "' again.");
        if (buckets.size() + tokens.size() > most)
            throw kx::CError("The list of buckets does not end: there are more than a million.");
    } while (!token.isEmpty());
    return buckets;
}

kx::String CS3Buckets::addBuckets(const kx::String& token, kx::TArray<CS3ListedBucket>& buckets)
{
    CS3Call call;
    if (!token.isEmpty())
        call.parameters.emplace_back("continuation-token", token);
    const CS3Document document
        = performForDocument(*m_client, *m_request, call, "ListAllMyBucketsResult", "'list buckets' result");
    kx::String next;
    document.getRoot().forEachElement([&buckets, &next](const CXMLElement& element) {
        if (element.isNamed("ContinuationToken"))
            next = element.getText();
        if (element.isNamed("Buckets"))
            element.forEachElement([&buckets](const CXMLElement& bucket) {
                if (bucket.isNamed("Bucket"))
                    buckets.push_back(readBucket(bucket));
            });
    });
    return next;
}

kx::String CS3Buckets::getLocation(const kx::String& bucketName)
{
    const CS3Call call = callOfBucket("GET", bucketName, "location");
    return performForDocument(
        *m_client, *m_request, call, "LocationConstraint", titleOfBucket("get location", bucketName))
        .getRoot()
        .getText();
}

CS3Buckets::Versioning CS3Buckets::getVersioning(const kx::String& bucketName)
{
    const kx::String title = titleOfBucket("get versioning", bucketName);
    const CS3Document document = performForDocument(
        *m_client, *m_request, callOfBucket("GET", bucketName, "versioning"), "VersioningConfiguration", title);
    kx::String status;
    document.getRoot().forEachElement([&status](const CXMLElement& element) {
        if (element.isNamed("Status"))
            status = element.getText();
    });
    if (status.isEmpty())
        return Versioning::Never;
    if (status == "Enabled")
        return Versioning::Enabled;
    if (status == "Suspended")
        return Versioning::Suspended;
    throw kx::CError("Error parsing Amazon S3 " + title + ": unknown status '" + status + "'.");
}

void CS3Buckets::setVersioning(const kx::String& bucketName, Versioning versioning)
{
    if (versioning == Versioning::Never)
        throw kx::CInvalidArgError("versioning can be enabled or suspended", "CS3Buckets::setVersioning");
    CS3Call call = callOfBucket("PUT", bucketName, "versioning");
    CS3XMLWriter writer("VersioningConfiguration");
    writer.add("Status", versioning == Versioning::Enabled ? kx::String("Enabled") : kx::String("Suspended"));
    setS3Document(call, writer.finish());
    performForNothing(*m_client, *m_request, call);
}

} // namespace norla
