#include "norla/s3/CS3UploadEnum.h"

#include "norla/s3/TS3ListCursor.h"

namespace norla {

namespace {

CS3ListedUpload readUpload(CS3ListPages& pages, const CXMLElement& root)
{
    CS3ListedUpload upload;
    root.forEachElement([&](const CXMLElement& element) {
        if (element.isNamed("Key"))
            upload.key = pages.nameIn(element);
        else if (element.isNamed("UploadId"))
            upload.uploadId = pages.textIn(element);
        else if (element.isNamed("Initiated"))
            upload.initiated = pages.textIn(element);
        else if (element.isNamed("StorageClass"))
            upload.storageClass = pages.textIn(element);
    });
    pages.acceptKey(upload.key, upload.uploadId);
    if (upload.uploadId.isEmpty())
        pages.fail("has an upload of '" + CS3ListPages::shown(upload.key) + "' without an id");
    return upload;
}

std::vector<CS3ListedUpload> fetchUploads(CS3ListPages& pages)
{
    std::vector<CS3ListedUpload> uploads;
    pages.fetch([&](const CXMLElement& element) {
        if (!element.isNamed("Upload"))
            return;
        CS3ListedUpload upload = readUpload(pages, element);
        if (upload.key != pages.getOptions().startAfter) // some stores begin with that one
            uploads.push_back(std::move(upload));
    });
    return uploads;
}

} // namespace

CS3UploadEnum::CS3UploadEnum(
    CS3Client* client, CNetRequest* request, const kx::String& bucketName, const CS3ListOptions& options)
    : m_cursor(std::make_unique<TS3ListCursor<CS3ListedUpload>>(
        client, request, bucketName, options, kx::String(), s3UploadList))
{
}

CS3UploadEnum::~CS3UploadEnum() = default;

bool CS3UploadEnum::next()
{
    return m_cursor->next(fetchUploads);
}

const CS3ListedUpload* CS3UploadEnum::getCurrent() const noexcept
{
    return m_cursor->getCurrent();
}

} // namespace norla
