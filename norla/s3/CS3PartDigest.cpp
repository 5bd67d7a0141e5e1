#include "norla/s3/CS3PartDigest.h"

#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "sela/CDigest.h"
#include "sela/base64.h"

#include <algorithm>
#include <vector>

namespace norla {

namespace {

std::string hexOf(const sela::CDigest& digest)
{
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
}

} // namespace

CS3PartDigest CS3PartDigest::of(IDataSource& source, long long size)
{
    constexpr long long blockSize = 256 << 10;
    std::vector<unsigned char> block(static_cast<size_t>(std::clamp(size, 1LL, blockSize)));
    sela::CDigest md5("MD5");
    sela::CDigest sha256("SHA256");
    source.seek(0);
    for (long long done = 0; done < size;) {
        const int wanted = static_cast<int>(std::min(size - done, blockSize));
        const int count = source.read(block.data(), wanted, {});
        if (count <= 0 || count > wanted)
            throw kx::CError(
                "The source of a part has " + kx::toString(done) + " bytes instead of " + kx::toString(size) + ".");
        md5.update(block.data(), static_cast<size_t>(count));
        sha256.update(block.data(), static_cast<size_t>(count));
        done += count;
    }
    md5.finish();
    sha256.finish();
    return {.size = size,
        .contentMD5 = sela::base64Encode(md5.getBytes(), md5.getLength(), true, false),
        .md5 = hexOf(md5),
        .sha256 = hexOf(sha256)};
}

} // namespace norla
