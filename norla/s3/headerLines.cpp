#include "norla/s3/headerLines.h"

#include "kx/text/String.h"
#include "norla/core/CNetRequest.h" // with libcurl's list

#include <algorithm>

namespace norla {

namespace {

void addHeaderLine(CNetHeaders& headers, std::string_view line)
{
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) // "Name;"
        headers.addEmpty(kx::String::fromUTF8(line.substr(0, line.size() - 1)));
    else
        headers.add(kx::String::fromUTF8(line.substr(0, colon)), kx::String::fromUTF8(line.substr(colon + 1)));
}

} // namespace

std::string nameOfHeaderLine(std::string_view line)
{
    return kx::String::fromUTF8(line.substr(0, line.find_first_of(":;"))).toLower().toUTF8();
}

kx::P<CNetHeaders> headersWithout(const CNetHeaders& headers, const std::vector<std::string>& names)
{
    auto others = kx::newObj<CNetHeaders>();
    for (const curl_slist* node = headers.getCurlList(); node; node = node->next) {
        if (std::find(names.begin(), names.end(), nameOfHeaderLine(node->data)) == names.end())
            addHeaderLine(*others, node->data);
    }
    return others;
}

} // namespace norla
