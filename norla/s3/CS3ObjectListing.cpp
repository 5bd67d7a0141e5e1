#include "norla/s3/CS3ObjectListing.h"

#include "norla/s3/TS3ListCursor.h"
#include "norla/s3/readListedObject.h"

namespace norla {

namespace {

std::vector<CS3ListedObject> fetchObjects(CS3ListPages& pages)
{
    std::vector<CS3ListedObject> objects;
    pages.fetch([&](const CXMLElement& element) {
        if (element.isNamed("Contents"))
            objects.push_back(readListedObject(pages, element));
        else if (element.isNamed("CommonPrefixes"))
            pages.fail("sums up objects, which was not asked for");
    });
    return objects;
}

} // namespace

CS3ObjectListing::CS3ObjectListing(
    CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options)
    : m_cursor(std::make_unique<TS3ListCursor<CS3ListedObject>>(
        client, request, bucketName, options, kx::String(), s3ObjectList))
{
}

CS3ObjectListing::~CS3ObjectListing() = default;

bool CS3ObjectListing::next()
{
    return m_cursor->next(fetchObjects);
}

const CS3ListedObject* CS3ObjectListing::getCurrent() const noexcept
{
    return m_cursor->getCurrent();
}

} // namespace norla
