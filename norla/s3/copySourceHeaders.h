#pragma once

#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3CopySource.h"

namespace norla {

/// Of CopyObject and UploadPartCopy.
/// @throws kx::CInvalidArgError for a source without a name
CS3Call::Fields copySourceHeaders(CNetRequest& request, const CS3CopySource& source);

} // namespace norla
