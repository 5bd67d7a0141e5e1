#include "norla/files/uploadPlace.h"

#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "norla/core/plainURL.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

constexpr size_t longestRemoteName = 255; // bytes, which most file systems take

[[noreturn]] void throwUnusable(const std::string& url, const char* why)
{
    throw kx::CError(
        "No file can be sent to '" + readable(withoutSecrets(url, true)) + "': " + kx::String::fromLatin1(why) + ".");
}

std::string percentDecoded(std::string_view text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? kx::hexDecodeCharLax(text[i + 1]) : -1;
        const int low = high >= 0 ? kx::hexDecodeCharLax(text[i + 2]) : -1;
        bytes += low >= 0 ? static_cast<char>(high * 16 + low) : text[i];
        i += low >= 0 ? 2 : 0;
    }
    return bytes;
}

std::string percentEncoded(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-'
            || c == '.' || c == '_';
        if (isPlain)
            text += c;
        else
            text.append("%").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    }
    return text;
}

/// Where the last part of a path begins: behind a slash, which may be written as %2F.
size_t startOfName(std::string_view path)
{
    size_t start = path.rfind('/') + 1; // all of it without one
    for (size_t i = start; i + 2 < path.size(); ++i) {
        if (path[i] == '%' && path[i + 1] == '2' && (path[i + 2] == 'F' || path[i + 2] == 'f'))
            start = i + 3;
    }
    return start;
}

/// A character of UTF-8 goes as a whole.
std::string shortenedTo(std::string name, size_t most)
{
    if (name.size() <= most)
        return name;
    while (most > 0 && (static_cast<unsigned char>(name[most]) & 0xC0U) == 0x80U)
        --most;
    name.resize(most);
    return name;
}

/// As libcurl reads a path in a command of SFTP. The directory of the login is written as /~/.
std::string quotedSFTPPath(std::string_view path)
{
    constexpr std::string_view home = "/~/";
    if (path.starts_with(home))
        path.remove_prefix(home.size());
    std::string quoted = "\"";
    for (const char c : path) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

} // namespace

CUploadPlace uploadPlaceOf(const std::string& url, const std::string& digits)
{
    const std::string path = pathOf(url);
    if (!url.ends_with(path))
        throwUnusable(url, "the URL has a query or a fragment");
    const std::string before = url.substr(0, url.size() - path.size());
    const size_t start = startOfName(path);
    const std::string folder = path.substr(0, start);
    const bool isSFTP = schemeOf(url) == "sftp";
    const size_t type = isSFTP ? std::string::npos : path.find(";type=", start);
    const size_t end = std::min(type, path.size());
    const std::string name = percentDecoded(std::string_view(path).substr(start, end - start));
    const std::string ending = '.' + digits + ".norla-part";
    const std::string temporaryName = shortenedTo(name, longestRemoteName - ending.size()) + ending;
    const std::string decodedFolder = percentDecoded(folder);
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 127; };
    if (name.empty() || name == "." || name == "..")
        throwUnusable(url, "its path names no file");
    if (std::any_of(name.begin(), name.end(), isControl)
        || std::any_of(decodedFolder.begin(), decodedFolder.end(), isControl))
        throwUnusable(url, "its path holds a control character");
    return {.isSFTP = isSFTP,
        .url = url,
        .temporaryURL = before + folder + percentEncoded(temporaryName) + path.substr(end),
        .folderURL = before + folder,
        .name = isSFTP ? quotedSFTPPath(decodedFolder + name) : name,
        .temporaryName = isSFTP ? quotedSFTPPath(decodedFolder + temporaryName) : temporaryName};
}

} // namespace norla
