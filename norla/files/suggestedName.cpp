#include "norla/files/suggestedName.h"

#include "kx/base/CError.h"
#include "kx/text/utf8.h"
#include "norla/core/plainURL.h"
#include "norla/http/util.h"

#include <algorithm>
#include <map>
#include <string>

namespace norla {

namespace {

constexpr size_t longestName = 255; // bytes, which most file systems take
constexpr size_t longestDisposition = 16 << 10;

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

std::string_view trimBlanks(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// A token, or what stands between quotation marks, taken from the text's beginning.
std::string takeParameterValue(std::string_view& text)
{
    std::string value;
    if (text.empty() || text.front() != '"') {
        const size_t end = std::min(text.find(';'), text.size());
        value = trimBlanks(text.substr(0, end));
        text.remove_prefix(end);
        return value;
    }
    text.remove_prefix(1);
    while (!text.empty() && text.front() != '"') {
        if (text.front() == '\\' && text.size() > 1)
            text.remove_prefix(1);
        value += text.front();
        text.remove_prefix(1);
    }
    text.remove_prefix(std::min<size_t>(1, text.size()));
    return value;
}

/// Names in lower case; of a name that comes twice the first one counts.
std::map<std::string, std::string> parametersOf(std::string_view text)
{
    std::map<std::string, std::string> all;
    text.remove_prefix(std::min(text.find(';'), text.size())); // the type
    while (!text.empty()) {
        text.remove_prefix(1); // ";"
        const size_t end = std::min(text.find_first_of("=;"), text.size());
        std::string name(trimBlanks(text.substr(0, end)));
        std::transform(name.begin(), name.end(), name.begin(),
            [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        text.remove_prefix(end);
        if (text.empty() || text.front() != '=')
            continue;
        text.remove_prefix(1);
        while (!text.empty() && isBlank(text.front()))
            text.remove_prefix(1);
        all.emplace(std::move(name), takeParameterValue(text));
        text.remove_prefix(std::min(text.find(';'), text.size()));
    }
    return all;
}

/// Of RFC 8187: UTF-8'language'percent-encoded. Empty when it is something else.
kx::String extendedValue(const std::string& value)
{
    constexpr std::string_view charset = "utf-8'";
    std::string start = value.substr(0, charset.size());
    std::transform(start.begin(), start.end(), start.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const size_t end = value.find('\'', charset.size());
    if (start != charset || end == std::string::npos)
        return {};
    try {
        return urlUnescape(readable(value.substr(end + 1)), false);
    } catch (const kx::CError&) {
        return {};
    }
}

/// What shows a name in another order than it is in, or shows nothing of a character.
bool isDeceptive(wchar_t c)
{
    return (c >= 0x200B && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF
        || c == 0x061C || c == 0x2028 || c == 0x2029;
}

bool isControl(wchar_t c)
{
    return c < L' ' || (c >= 0x7F && c < 0xA0);
}

bool isEdge(wchar_t c)
{
    return c == L'.' || c == L' ';
}

void trimEnd(std::wstring& name)
{
    name.erase(std::find_if_not(name.rbegin(), name.rend(), isEdge).base(), name.end());
}

/// Cut in front of its ending, where it has a short one.
std::wstring shortened(std::wstring name)
{
    constexpr size_t longestEnding = 16;
    const size_t dot = name.rfind(L'.');
    const bool hasEnding = dot != std::wstring::npos && dot > 0 && name.size() - dot <= longestEnding;
    const std::wstring ending = hasEnding ? name.substr(dot) : std::wstring();
    const size_t whole = name.size() - ending.size();
    name.resize(whole);
    while (!name.empty() && kx::String(name + ending).toUTF8().size() > longestName)
        name.pop_back();
    if (name.size() < whole)
        trimEnd(name);
    return name + ending;
}

/// Whether the library keeps beside a file what it knows of it under such a name: who could give one to a file would
/// say what another file begins with.
bool isNameOfState(const std::wstring& name)
{
    const kx::String lower = kx::String(name).toLower(); // some file systems tell no capitals
    return lower.endsWith(".norla-part") || lower.endsWith(".norla-record") || lower.endsWith(".norla-record.new");
}

kx::String safeName(const kx::String& text)
{
    std::wstring name;
    for (const wchar_t c : text) {
        if (c == L'/' || c == L'\\')
            name.clear(); // the last name of a path
        else if (!isControl(c) && !isDeceptive(c) && kx::isScalarValue(c))
            name += c;
    }
    name.erase(name.begin(), std::find_if_not(name.begin(), name.end(), isEdge));
    trimEnd(name);
    name = shortened(std::move(name));
    return kx::String(isNameOfState(name) ? shortened(name + L'_') : name);
}

} // namespace

kx::String suggestedNameIn(const kx::String& contentDisposition)
{
    if (contentDisposition.size() > longestDisposition)
        return {};
    const auto parameters = parametersOf(contentDisposition.toUTF8());
    if (const auto extended = parameters.find("filename*"); extended != parameters.end()) {
        kx::String name = safeName(extendedValue(extended->second));
        if (!name.isEmpty())
            return name;
    }
    const auto plain = parameters.find("filename");
    return plain == parameters.end() ? kx::String() : safeName(readable(plain->second));
}

kx::String suggestedNameOf(std::string_view path)
{
    const std::string_view name = path.substr(path.rfind('/') + 1); // all of it without a slash
    if (name.size() > longestDisposition)
        return {};
    try {
        return safeName(urlUnescape(readable(name), false));
    } catch (const kx::CError&) {
        return safeName(readable(name));
    }
}

} // namespace norla
