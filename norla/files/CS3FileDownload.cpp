#include "norla/files/CS3FileDownload.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/files/CS3DownloadOrigin.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ClientClaim.h"
#include "norla/s3/policyForStore.h"

namespace norla {

namespace {

CS3Client& requireDownloadClient(CS3Client* client)
{
    if (!client)
        throw kx::CInvalidArgError("client is null", "CS3FileDownload");
    return *client;
}

CFileDownloadOptions fileOptions(const CS3Client& client, const CFileDownloadOptions& wanted)
{
    CFileDownloadOptions options = wanted;
    options.retries = policyForStore(client, wanted.retries);
    return options;
}

} // namespace

CS3FileDownload::CS3FileDownload(CS3Client* client, const kx::String& bucketName, const kx::String& objectName,
    const Path& path, const Options& options)
    : CFileDownload(std::make_shared<CS3DownloadOrigin>(requireDownloadClient(client), bucketName, objectName, options),
        path, fileOptions(requireDownloadClient(client), options.file))
    , m_client(*client)
{
}

CS3FileDownload::~CS3FileDownload() = default;

void CS3FileDownload::transfer()
{
    const CS3ClientClaim claim(m_client);
    CFileDownload::transfer();
}

} // namespace norla
