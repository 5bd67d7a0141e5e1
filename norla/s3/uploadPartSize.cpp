#include "norla/s3/uploadPartSize.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/s3/multipartDocuments.h"

#include <algorithm>

namespace norla {

namespace {

constexpr char uploadName[] = "CS3ParallelUpload";
constexpr long long bytesOfMiB = 1LL << 20;
constexpr long long leastPartSize = 5 * bytesOfMiB;
constexpr long long mostPartSize = 5LL << 30;

} // namespace

long long uploadPartSize(long long size, long long wanted)
{
    constexpr long long usual = 8 * bytesOfMiB;
    constexpr long long most = mostPartSize * mostS3Parts;
    if (size < 0)
        throw kx::CInvalidArgError("the size of the source is unknown", uploadName);
    if (size > most)
        throw kx::CInvalidArgError("no object has " + kx::toString(size) + " bytes", uploadName);
    if (wanted == 0) {
        const long long least = (size + mostS3Parts - 1) / mostS3Parts;
        return std::max(usual, (least + bytesOfMiB - 1) / bytesOfMiB * bytesOfMiB);
    }
    if (wanted < leastPartSize || wanted > mostPartSize)
        throw kx::CInvalidArgError("a part has 5 MiB to 5 GiB, and not " + kx::toString(wanted) + " bytes", uploadName);
    if ((size + wanted - 1) / wanted > mostS3Parts)
        throw kx::CInvalidArgError(
            kx::toString(size) + " bytes are more than 10,000 parts of " + kx::toString(wanted) + " bytes", uploadName);
    return wanted;
}

} // namespace norla
