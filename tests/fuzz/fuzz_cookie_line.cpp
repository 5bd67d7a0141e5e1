#include "norla/core/cookieLine.h"
#include "tests/fuzz/require.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

namespace {

/// What libcurl makes of the line: its own line for the cookie, empty when it is none.
std::string libcurlsLine(const std::string& line)
{
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), curl_easy_cleanup);
    curl_easy_setopt(handle.get(), CURLOPT_COOKIELIST, line.c_str());
    curl_slist* list = nullptr;
    curl_easy_getinfo(handle.get(), CURLINFO_COOKIELIST, &list);
    std::string found = list ? list->data : "";
    curl_slist_free_all(list);
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string line(reinterpret_cast<const char*>(data), size);
    const auto cookie = norla::parseCookieLine(line);
    if (!cookie)
        return 0;
    require(!norla::isCookieComment(line), "a cookie is no comment");
    require(!cookie->domain.isEmpty() && cookie->path.startsWith("/"), "it goes somewhere");
    const std::string again = libcurlsLine(line);
    if (again.empty()) // which refuses cookies for more reasons
        return 0;
    const auto theirs = norla::parseCookieLine(again);
    require(theirs.has_value(), "what libcurl writes is read again");
    require(theirs->domain == cookie->domain && theirs->name == cookie->name && theirs->value == cookie->value
            && theirs->isSecure == cookie->isSecure && theirs->hasSubdomains == cookie->hasSubdomains
            && theirs->isHTTPOnly == cookie->isHTTPOnly && theirs->path == cookie->path,
        "libcurl reads the same");
    return 0;
}
