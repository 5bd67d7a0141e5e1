#include "norla/ftp/CFTPDirEntry.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/ftp/tokens.h"

#include <string_view>

namespace norla {

namespace {

constexpr size_t wholeSecondsLength = 14; // YYYYMMDDHHMMSS
constexpr int unknownWeekDay = -1;

[[noreturn]] void throwInvalidEntry(const kx::String& line)
{
    throw kx::CError("Invalid FTP dir entry: '" + line + "'");
}

} // namespace

CFTPDirEntry::CFTPDirEntry() = default;

CFTPDirEntry::CFTPDirEntry(const kx::String& line)
{
    const size_t space = line.find(L' ');
    if (space == kx::String::npos)
        throwInvalidEntry(line);
    m_name = line.substr(space + 1);
    forEachField(std::wstring_view(line.toWide()).substr(0, space), L';', [this, &line](std::wstring_view field) {
        const kx::String fact = kx::String(std::wstring(field)).toLower();
        const size_t equals = fact.find(L'=');
        if (equals == kx::String::npos)
            throwInvalidEntry(line);
        readFact(fact.substr(0, equals), fact.substr(equals + 1));
    });
}

CFTPDirEntry::~CFTPDirEntry() = default;

void CFTPDirEntry::readFact(const kx::String& name, const kx::String& value)
{
    if (name == "type") {
        if (value == "file")
            m_type = TypeFile;
        else if (value == "dir")
            m_type = TypeDir;
    } else if (name == "size") {
        m_size = kx::parseInt64(value, false);
    } else if (name == "modify") {
        m_modificationTime = parseTimeValue(value);
    }
}

kx::CTime CFTPDirEntry::parseTimeValue(const kx::String& value)
{
    const bool hasFraction = value.size() > wholeSecondsLength;
    if (value.size() < wholeSecondsLength || (hasFraction && value[wholeSecondsLength] != L'.'))
        throw kx::CError("Invalid FTP time value: '" + value + "'");
    const auto number
        = [&value](size_t start, size_t count) { return kx::parseInt64(value.substr(start, count), false); };
    kx::CTimeFields fields;
    fields.setDate(number(0, 4), number(4, 2), number(6, 2), unknownWeekDay);
    fields.setTime(number(8, 2), number(10, 2), number(12, 2));
    if (hasFraction)
        fields.setFractSecond(kx::parseSimpleDouble(value.substr(wholeSecondsLength)));
    return fields.toTime();
}

} // namespace norla
