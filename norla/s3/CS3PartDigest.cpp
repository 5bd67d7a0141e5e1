#include "norla/s3/CS3PartDigest.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3BodyDigest.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace norla {

CS3PartDigest CS3PartDigest::of(IDataSource& source, long long size)
{
    constexpr long long blockSize = 256 << 10;
    std::vector<unsigned char> block(static_cast<size_t>(std::clamp(size, 1LL, blockSize)));
    CS3BodyDigest md5(CS3Checksum::MD5);
    CS3BodyDigest sha256(CS3Checksum::SHA256);
    source.seek(0);
    for (long long done = 0; done < size;) {
        const int wanted = static_cast<int>(std::min(size - done, blockSize));
        const int count = source.read(block.data(), wanted, {});
        if (count <= 0 || count > wanted)
            throw kx::CError(
                "The source of a part has " + kx::toString(done) + " bytes instead of " + kx::toString(size) + ".");
        const std::string_view bytes(reinterpret_cast<const char*>(block.data()), static_cast<size_t>(count));
        md5.update(bytes);
        sha256.update(bytes);
        done += count;
    }
    return {.size = size, .contentMD5 = md5.toBase64(), .md5 = md5.toHex().toUTF8(), .sha256 = sha256.toHex().toUTF8()};
}

} // namespace norla
