#include "norla/s3/copySourceHeaders.h"

#include "kx/base/CInvalidArgError.h"

namespace norla {

CS3Call::Fields copySourceHeaders(CNetRequest& request, const CS3CopySource& source)
{
    if (source.bucketName.isEmpty() || source.objectName.isEmpty())
        throw kx::CInvalidArgError("the source of a copy has no name", "CS3CopySource");
    kx::String path = "/" + request.urlEscape(source.bucketName) + "/" + request.urlEscape(source.objectName);
    if (!source.versionId.isEmpty())
        path += "?versionId=" + request.urlEscape(source.versionId);
    CS3Call::Fields headers{{"x-amz-copy-source", path}};
    if (!source.eTag.isEmpty())
        headers.emplace_back("x-amz-copy-source-if-match", source.eTag);
    return headers;
}

} // namespace norla
