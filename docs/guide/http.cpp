#include "norla/core/CNetRequest.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/http/util.h"

// The address of a search: "https://host/find?page=1&q=caf%c3%a9+au+lait".
kx::String searchURL(const kx::String& url, const kx::String& words)
{
    return url + "?" + norla::encodeURLParams({{"q", words}, {"page", "1"}});
}

// Fetches a file from a position on, behind what is there already; returns when it was changed, and its whole size.
kx::CTime fetchRest(norla::CNetRequest& request, const kx::String& url, long long position, long long& size)
{
    request.reset();
    request.setURL(url);
    request.setRange(position, -1);
    request.perform();
    const auto& headers = request.getResponseHeaderMap();
    if (!headers.contains("content-range"))
        throw kx::CError("The server has sent the whole file again.");
    size = norla::CHTTPContentRange::parse(headers.at("content-range"))->getTotal();
    return norla::parseTimestamp(headers.at("last-modified"));
}
