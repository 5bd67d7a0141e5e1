#include "norla/http/CHTTPServerHeader.h"

#include <algorithm>

namespace norla {

CHTTPServerHeader::CHTTPServerHeader(const kx::String& header)
    : m_header(header)
{
    for (size_t start = 0; start < header.size();) {
        const size_t end = std::min(header.find(L' ', start), header.size());
        addProduct(header.substr(start, end - start));
        start = end + 1;
    }
}

CHTTPServerHeader::~CHTTPServerHeader() = default;

void CHTTPServerHeader::addProduct(const kx::String& token)
{
    if (token.isEmpty())
        return;
    const size_t slash = token.find(L'/');
    const kx::String version = slash == kx::String::npos ? kx::String() : token.substr(slash + 1);
    m_products.insert_or_assign(token.substr(0, slash), version);
}

} // namespace norla
