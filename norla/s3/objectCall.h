#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3CopyOptions.h"
#include "norla/s3/CS3GetOptions.h"
#include "norla/s3/CS3PutOptions.h"

#include <string_view>

namespace norla {

struct CS3ObjectName {
    kx::String bucketName;
    kx::String objectName;
};

/// "the object 'k' in the bucket 'b'", for errors.
kx::String textOf(const CS3Call& call);

/// @param versionId empty for the newest @throws kx::CInvalidArgError for an empty name
CS3Call objectCall(const kx::String& method, const kx::String& bucketName, const kx::String& objectName,
    const kx::String& versionId, const kx::String& functionName);

/// @param method "GET" or "HEAD" @param options start, length and mostBytes are not looked at
CS3Call getCall(const kx::String& method, const kx::String& bucketName, const kx::String& objectName,
    const CS3GetOptions& options, const kx::String& functionName);

/// What an object is stored with. @throws kx::CInvalidArgError for an option that makes no sense
CS3Call::Fields putHeaders(const CS3PutOptions& options);

/// With its headers, without its bytes. @throws kx::CInvalidArgError for an option that makes no sense
CS3Call putCall(const kx::String& bucketName, const kx::String& objectName, const CS3PutOptions& options);

/// @param request escapes names @throws kx::CInvalidArgError for options that are without effect or make no sense
CS3Call copyCall(
    CNetRequest& request, const CS3ObjectName& source, const CS3ObjectName& target, const CS3CopyOptions& options);

/// @throws CS3Error for a failure; kx::CError naming the copy for what is no answer to one
kx::P<CS3CopyObjectResult> copyResult(std::string_view answer, const CS3Call& call);

} // namespace norla
