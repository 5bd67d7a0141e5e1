#include "norla/s3/CS3SharedCredentialsFile.h"

#include "kx/base/CError.h"
#include "kx/files/readWholeFile.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

namespace norla {

namespace {

using Path = CS3SharedCredentialsFile::Path;
using Keys = std::map<std::string, std::string, std::less<>>;

constexpr size_t mostFileBytes = 1 << 20;

std::string_view environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

Path defaultPath()
{
    if (const auto path = environment("AWS_SHARED_CREDENTIALS_FILE"); !path.empty())
        return Path::fromBytes(path);
    const auto home = environment("HOME");
    if (home.empty())
        throw kx::CError("It is not known where the S3 credentials are: neither AWS_SHARED_CREDENTIALS_FILE nor HOME "
                         "is set.");
    return Path::fromBytes(home) / ".aws/credentials";
}

kx::String defaultProfile()
{
    const auto profile = environment("AWS_PROFILE");
    return profile.empty() ? kx::String("default") : kx::String::fromUTF8(profile);
}

std::string_view trimmed(std::string_view text)
{
    constexpr char blanks[] = " \t\r";
    const size_t start = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(start, text.find_last_not_of(blanks) + 1 - start);
}

/// Of a line that begins a section, which a comment may follow; empty for one that names none.
std::string_view sectionIn(std::string_view line)
{
    const size_t end = line.find(']');
    return end == std::string_view::npos ? std::string_view() : trimmed(line.substr(1, end - 1));
}

/// Nothing when the profile is not there. Of two with one name the later keys count.
Keys keysOf(std::string_view content, std::string_view profile)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (content.starts_with(byteOrderMark))
        content.remove_prefix(byteOrderMark.size());
    Keys keys;
    bool isWanted = false;
    while (!content.empty()) {
        const std::string_view line = trimmed(content.substr(0, content.find('\n')));
        content.remove_prefix(std::min(content.find('\n'), content.size() - 1) + 1);
        if (line.starts_with('[')) { // the keys behind it are not those of the one before
            isWanted = sectionIn(line) == profile;
        } else if (isWanted && !line.starts_with('#') && !line.starts_with(';')) {
            const size_t equals = std::min(line.find('='), line.size());
            keys[std::string(trimmed(line.substr(0, equals)))]
                = trimmed(line.substr(std::min(equals + 1, line.size())));
        }
    }
    return keys;
}

kx::String valueIn(const Path& path, const kx::String& profile, const Keys::value_type& key)
{
    try {
        return kx::String::fromUTF8(key.second);
    } catch (const kx::CError&) {
        throw kx::CError("The file '" + path.toString() + "' has an '" + kx::String::fromLatin1(key.first)
            + "' that is not UTF-8 in the profile '" + profile + "'.");
    }
}

} // namespace

CS3SharedCredentialsFile::CS3SharedCredentialsFile(const Path& path, const kx::String& profile)
    : m_path(path.isEmpty() ? defaultPath() : path)
    , m_profile(profile.isEmpty() ? defaultProfile() : profile)
{
}

CS3SharedCredentialsFile::~CS3SharedCredentialsFile() = default;

CS3Credentials CS3SharedCredentialsFile::get()
{
    const Keys keys = keysOf(kx::readWholeFile(m_path, mostFileBytes), m_profile.toUTF8());
    const auto valueOf = [&](std::string_view name) {
        const auto found = keys.find(name);
        return found == keys.end() ? kx::String() : valueIn(m_path, m_profile, *found);
    };
    const auto demandedValueOf = [&](const char* name) {
        kx::String value = valueOf(name);
        if (value.isEmpty())
            throw kx::CError("The file '" + m_path.toString() + "' has no '" + kx::String::fromLatin1(name)
                + "' in the profile '" + m_profile + "'.");
        return value;
    };
    return {.accessKeyId = demandedValueOf("aws_access_key_id"),
        .secretAccessKey = demandedValueOf("aws_secret_access_key"),
        .sessionToken = valueOf("aws_session_token"),
        .expiry = {}};
}

} // namespace norla
