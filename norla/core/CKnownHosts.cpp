#include "norla/core/CKnownHosts.h"

#include "kx/containers/TBuffer.h"
#include "sela/base64.h"
#include "sela/hmac.h"

#include <algorithm>
#include <array>
#include <optional>

namespace norla {

namespace {

constexpr std::string_view blanks = " \t";

const unsigned char* bytesOf(std::string_view text) noexcept
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return result;
}

/// The text up to the separator, which are taken away from the rest.
std::string_view takeUpTo(std::string_view& rest, std::string_view separators)
{
    const size_t end = std::min(rest.find_first_of(separators), rest.size());
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return taken;
}

std::string_view takeField(std::string_view& rest)
{
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    return takeUpTo(rest, blanks);
}

/// "*" stands for any text, "?" for any character. Takes a time of text by pattern at most.
bool isLike(std::string_view text, std::string_view pattern) noexcept
{
    size_t at = 0;
    size_t inPattern = 0;
    size_t star = std::string_view::npos;
    size_t retry = 0;
    while (at < text.size()) {
        if (inPattern < pattern.size() && pattern[inPattern] == '*') {
            star = inPattern++;
            retry = at;
        } else if (inPattern < pattern.size() && (pattern[inPattern] == '?' || pattern[inPattern] == text[at])) {
            ++inPattern;
            ++at;
        } else if (star != std::string_view::npos) {
            inPattern = star + 1;
            at = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', inPattern) == std::string_view::npos;
}

/// "|1|SALT|HASH", both in Base64: the HMAC-SHA1 of the name by the salt.
bool isHashOf(std::string_view field, const std::string& name)
{
    field.remove_prefix(std::string_view("|1|").size());
    const std::optional<std::string> salt = sela::base64Decode(takeUpTo(field, "|"));
    if (!salt)
        return false;
    const std::string expected = sela::base64Decode(field).value_or(std::string());
    kx::TBuffer<unsigned char> hash;
    sela::calcHMAC_SHA1(hash, bytesOf(name), name.size(), bytesOf(*salt), salt->size());
    return std::equal(
        hash.getData(), hash.getData() + hash.getSize(), bytesOf(expected), bytesOf(expected) + expected.size());
}

/// @param name in lower case
bool names(std::string_view field, const std::string& name)
{
    if (field.starts_with("|1|"))
        return isHashOf(field, name);
    bool isNamed = false;
    while (!field.empty()) {
        std::string_view pattern = takeUpTo(field, ",");
        const bool isExcluded = pattern.starts_with('!');
        pattern.remove_prefix(isExcluded ? 1 : 0);
        if (!isLike(name, lower(pattern)))
            continue;
        if (isExcluded)
            return false;
        isNamed = true;
    }
    return isNamed;
}

bool contains(const std::vector<std::string>& keys, std::string_view key)
{
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool isPlainCharacter(char c) noexcept
{
    constexpr std::string_view marks = ".:-_%";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
        || marks.find(c) != std::string_view::npos;
}

} // namespace

std::string CKnownHosts::CHost::toText() const
{
    return port == usualPort ? name : "[" + name + "]:" + std::to_string(port);
}

CKnownHosts::CKnownHosts(std::string_view bytes)
{
    while (!bytes.empty())
        readLine(takeUpTo(bytes, "\r\n"));
}

void CKnownHosts::readLine(std::string_view line)
{
    std::string_view field = takeField(line);
    const bool isRevoked = field == "@revoked";
    if (isRevoked)
        field = takeField(line);
    if (field.empty() || field.starts_with('#'))
        return;
    const std::string_view type = takeField(line);
    std::optional<std::string> key = sela::base64Decode(takeField(line));
    if (key && !type.empty() && typeOf(*key) == type)
        m_lines.push_back({.isRevoked = isRevoked, .hosts = std::string(field), .key = *std::move(key)});
}

CKnownHosts::Verdict CKnownHosts::judge(const CHost& host, std::string_view key) const
{
    const std::string name = lower(host.toText());
    const std::string plainName = lower(host.name);
    if (isRevokedUnder(name, key) || isRevokedUnder(plainName, key))
        return Verdict::Revoked;
    const std::vector<std::string> keys = keysUnder(name);
    if (!keys.empty())
        return contains(keys, key) ? Verdict::Known : Verdict::Changed;
    return contains(keysUnder(plainName), key) ? Verdict::Known : Verdict::Unknown;
}

std::vector<std::string> CKnownHosts::keysOf(const CHost& host) const
{
    std::vector<std::string> keys = keysUnder(lower(host.toText()));
    return keys.empty() ? keysUnder(lower(host.name)) : keys;
}

std::vector<std::string> CKnownHosts::keysUnder(const std::string& name) const
{
    std::vector<std::string> keys;
    for (const CLine& line : m_lines) {
        if (!line.isRevoked && names(line.hosts, name))
            keys.push_back(line.key);
    }
    return keys;
}

bool CKnownHosts::isRevokedUnder(const std::string& name, std::string_view key) const
{
    return std::any_of(m_lines.begin(), m_lines.end(),
        [&](const CLine& line) { return line.isRevoked && line.key == key && names(line.hosts, name); });
}

std::string CKnownHosts::lineFor(const CHost& host, std::string_view key)
{
    const bool isPlain = !host.name.empty() && std::all_of(host.name.begin(), host.name.end(), isPlainCharacter);
    if (!isPlain)
        return {};
    return lower(host.toText()) + " " + std::string(typeOf(key)) + " "
        + sela::base64Encode(bytesOf(key), key.size(), true, false).toUTF8();
}

// A key begins with the length of its type's name, in four bytes, and the name.
std::string_view CKnownHosts::typeOf(std::string_view key) noexcept
{
    constexpr size_t lengthSize = 4;
    if (key.size() < lengthSize)
        return {};
    size_t length = 0;
    for (const char byte : key.substr(0, lengthSize))
        length = length << 8 | static_cast<unsigned char>(byte);
    return length <= key.size() - lengthSize ? key.substr(lengthSize, length) : std::string_view();
}

} // namespace norla
