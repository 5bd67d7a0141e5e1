#include "norla/s3/CS3VersionEnum.h"

#include "norla/s3/TS3ListCursor.h"
#include "norla/s3/readListedObject.h"

namespace norla {

namespace {

CS3ListedVersion readVersion(CS3ListPages& pages, const CXMLElement& root, bool isDeleteMarker)
{
    CS3ListedVersion version;
    version.isDeleteMarker = isDeleteMarker;
    root.forEachElement([&](const CXMLElement& element) {
        if (element.isNamed("VersionId"))
            version.versionId = pages.textIn(element);
        else if (element.isNamed("IsLatest"))
            version.isLatest = pages.textIn(element).toLower() == "true";
        else
            readListedObjectField(pages, element, version);
    });
    pages.acceptKey(version.key, version.versionId);
    return version;
}

std::vector<CS3ListedVersion> fetchVersions(CS3ListPages& pages)
{
    std::vector<CS3ListedVersion> versions;
    pages.fetch([&](const CXMLElement& element) {
        const bool isDeleteMarker = element.isNamed("DeleteMarker");
        if (!isDeleteMarker && !element.isNamed("Version"))
            return;
        CS3ListedVersion version = readVersion(pages, element, isDeleteMarker);
        if (version.key != pages.getOptions().startAfter) // some stores begin with that one
            versions.push_back(std::move(version));
    });
    return versions;
}

} // namespace

CS3VersionEnum::CS3VersionEnum(
    CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options)
    : m_cursor(std::make_unique<TS3ListCursor<CS3ListedVersion>>(
        client, request, bucketName, options, kx::String(), s3VersionList))
{
}

CS3VersionEnum::~CS3VersionEnum() = default;

bool CS3VersionEnum::next()
{
    return m_cursor->next(fetchVersions);
}

const CS3ListedVersion* CS3VersionEnum::getCurrent() const noexcept
{
    return m_cursor->getCurrent();
}

} // namespace norla
