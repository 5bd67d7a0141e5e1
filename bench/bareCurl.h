#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct CEasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Easy = std::unique_ptr<CURL, CEasyCleanup>;

inline void check(CURLcode result)
{
    if (result == CURLE_OK)
        return;
    std::fprintf(stderr, "libcurl: %s\n", curl_easy_strerror(result));
    std::exit(1);
}

/// What the library gives its caller after a transfer, kept by hand: body, header map and, on demand, all lines.
class CBareResponse {
public:
    explicit CBareResponse(bool keepsLines = true)
        : m_keepsLines(keepsLines)
    {
    }
    CBareResponse(const CBareResponse&) = delete;
    CBareResponse& operator=(const CBareResponse&) = delete;
    ~CBareResponse() { clear(); }

    void receiveFrom(CURL* handle)
    {
        check(curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &appendBody));
        check(curl_easy_setopt(handle, CURLOPT_WRITEDATA, this));
        check(curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &addHeader));
        check(curl_easy_setopt(handle, CURLOPT_HEADERDATA, this));
    }

    /// Before each transfer.
    void clear()
    {
        m_body.clear();
        curl_slist_free_all(std::exchange(m_lines, nullptr));
        m_headers.clear();
    }

    size_t bodySize() const { return m_body.size(); }

private:
    void addLine(const std::string& line)
    {
        if (m_keepsLines)
            m_lines = curl_slist_append(m_lines, line.c_str());
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            return;
        std::string name = line.substr(0, colon);
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
        const size_t first = line.find_first_not_of(" \t", colon + 1);
        const size_t last = line.find_last_not_of(" \t\r\n");
        std::string& value = m_headers[name];
        if (!value.empty())
            value += ',';
        value.append(line, first, last - first + 1);
    }

    static size_t appendBody(char* data, size_t size, size_t count, void* response)
    {
        std::vector<char>& body = static_cast<CBareResponse*>(response)->m_body;
        body.insert(body.end(), data, data + size * count);
        return size * count;
    }

    static size_t addHeader(char* data, size_t size, size_t count, void* response)
    {
        static_cast<CBareResponse*>(response)->addLine(std::string(data, size * count));
        return size * count;
    }

    const bool m_keepsLines;
    std::vector<char> m_body;
    curl_slist* m_lines = nullptr;
    std::map<std::string, std::string> m_headers;
};

} // namespace bench
