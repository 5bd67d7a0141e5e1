#include "norla/core/CNetRequest.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/http/util.h"

// The address of a search: "https://host/find?page=1&q=caf%c3%a9+au+lait".
kx::String searchURL(const kx::String& url, const kx::String& words)
{
    return url + "?" + norla::encodeURLParams({{"q", words}, {"page", "1"}});
}

// Fetches a file from a position on, behind what is there already; returns when it was changed and its whole size. When
// the server does not say, the time is unset and the size -1 (as after "bytes 7-9/*").
kx::CTime fetchRest(norla::CNetRequest& request, const kx::String& url, long long position, long long& size)
{
    request.reset();
    request.setSafeDefaults();
    request.setURL(url);
    request.setRange(position, -1);
    request.perform();
    const auto& headers = request.getResponseHeaderMap();
    const auto range = headers.find("content-range");
    if (range == headers.end())
        throw kx::CError("The server has sent the whole file again.");
    size = norla::CHTTPContentRange::parse(range->second)->getTotal();
    const auto changed = headers.find("last-modified");
    return changed == headers.end() ? kx::CTime() : norla::parseTimestamp(changed->second);
}
