#include "tests/support/libcurlWords.h"

#include <curl/curl.h>

#include <array>
#include <string_view>

namespace support {

namespace {

struct CWordsRow {
    std::string_view old;
    std::string_view newer;
};

/// What 7.88 says, as a whole or as a part of a message, and what 8.14 says in its place.
constexpr std::array wordsRows = std::to_array<CWordsRow>({
    {"Couldn't connect to server", "Could not connect to server"},
    {"Couldn't resolve host name", "Could not resolve hostname"},
    {"Couldn't resolve proxy name", "Could not resolve proxy name"},
    {"FTP: couldn't retrieve (RETR failed) the specified file",
        "FTP: could not retrieve (RETR failed) the specified file"},
    {" not supported or disabled in libcurl", " not supported"},
    {"Unsupported proxy syntax in '***@h:99999'",
        "Unsupported proxy syntax in '***@h:99999': Port number was not a decimal number between 0 and 65535"},
    {"transfer closed with 5 bytes remaining to read", "end of response with 5 bytes missing"},
    {"no alternative certificate subject name matches target host name '127.0.0.1'",
        "no alternative certificate subject name matches target ipv4 address '127.0.0.1'"},
    {"Can't complete SOCKS5 connection to", "cannot complete SOCKS5 connection to"},
});

} // namespace

bool isLibcurlSince(unsigned major, unsigned minor)
{
    return curl_version_info(CURLVERSION_NOW)->version_num >= CURL_VERSION_BITS(major, minor, 0);
}

std::string libcurlSays(std::string text)
{
    if (!isLibcurlSince(8, 14))
        return text;
    for (const CWordsRow& row : wordsRows) {
        const size_t position = text.find(row.old);
        if (position != std::string::npos)
            text.replace(position, row.old.size(), row.newer);
    }
    return text;
}

std::set<std::string> libcurlSaysOfUnknownProxy(const std::string& name)
{
    const std::string reason = ": Could not resolve proxy: " + name;
    std::set<std::string> messages{libcurlSays("Couldn't resolve proxy name" + reason)};
    if (isLibcurlSince(8, 14))
        messages.insert(libcurlSays("Couldn't resolve host name" + reason));
    return messages;
}

} // namespace support
