#include "kx/base/CError.h"
#include "norla/http/CHTTPServerHeader.h"
#include "norla/http/CServerInfo.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kx::String text;
    try {
        text = kx::String::fromUTF8({reinterpret_cast<const char*>(data), size});
    } catch (const kx::CError&) {
        return 0;
    }
    const norla::CHTTPServerHeader header(text);
    require(header.getHeader() == text, "the header is kept");
    for (const auto& [product, version] : header.getProducts()) {
        require(
            product.find(L' ') == kx::String::npos && version.find(L' ') == kx::String::npos, "a token has no blank");
        require(product.find(L'/') == kx::String::npos, "a product has no slash");
        require(text.find(product) != kx::String::npos, "a product is part of the header");
    }
    norla::CServerInfo info;
    info.updateFromHeaders({{"server", text}});
    require(info.getServerHeader() == text, "the record keeps the header");
    return 0;
}
