#include "norla/s3/CS3DocumentSink.h"

#include "kx/base/CError.h"

namespace norla {

int CS3DocumentSink::write(
    const unsigned char* data, int size, int /*responseCode*/, const HeaderMap& /*responseHeaders*/)
{
    constexpr size_t longest = size_t{16} << 20; // a page of 1,000 names that are as long as names can be has 4 MiB
    const auto count = static_cast<size_t>(size);
    if (count > longest - m_bytes.size())
        throw kx::CError("The store's answer is longer than 16 MiB, which no document of a store is.");
    m_bytes.append(reinterpret_cast<const char*>(data), count);
    return size;
}

} // namespace norla
