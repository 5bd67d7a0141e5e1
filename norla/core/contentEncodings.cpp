#include "norla/core/contentEncodings.h"

#include "kx/base/CInvalidArgError.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>

namespace norla {

namespace {

constexpr const char* setterName = "CNetRequest::setAcceptEncoding";

struct CEncodingRow {
    const char* name;
    int feature; // of libcurl that unpacks it; 0 for none
};

constexpr std::array encodings = std::to_array<CEncodingRow>({
    {"identity", 0},
    {"gzip", CURL_VERSION_LIBZ},
    {"deflate", CURL_VERSION_LIBZ},
    {"br", CURL_VERSION_BROTLI},
    {"zstd", CURL_VERSION_ZSTD},
});

void requireContentEncoding(const kx::String& name, int features)
{
    const kx::String lower = name.toLower();
    const auto* const found = std::find_if(encodings.begin(), encodings.end(),
        [&lower](const CEncodingRow& row) { return lower == kx::String::fromLatin1(row.name); });
    if (found == encodings.end())
        throw kx::CInvalidArgError("there is no content encoding '" + name + "'", kx::String::fromLatin1(setterName));
    if (found->feature != 0 && (features & found->feature) == 0)
        throw kx::CInvalidArgError(
            "this libcurl cannot unpack the content encoding '" + name + "'", kx::String::fromLatin1(setterName));
}

} // namespace

void requireContentEncodings(const kx::String& names, int features)
{
    if (names.isEmpty())
        return;
    for (size_t start = 0; start <= names.size();) {
        const size_t end = std::min(names.find(L',', start), names.size());
        requireContentEncoding(names.substr(start, end - start).trim(), features);
        start = end + 1;
    }
}

} // namespace norla
