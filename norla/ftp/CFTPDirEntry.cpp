#include "norla/ftp/CFTPDirEntry.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/ftp/tokens.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

constexpr size_t wholeSecondsLength = 14; // YYYYMMDDHHMMSS
constexpr int unknownWeekDay = -1;

kx::String textOf(std::wstring_view text)
{
    return kx::String(std::wstring(text));
}

[[noreturn]] void throwInvalidEntry(std::wstring_view line)
{
    throw kx::CError("Invalid FTP dir entry: '" + textOf(line) + "'");
}

/// @param lowerCase in ASCII
bool isIgnoringCase(std::wstring_view text, std::string_view lowerCase)
{
    const auto lower
        = [](wchar_t character) { return character >= L'A' && character <= L'Z' ? character + 32 : character; };
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
        [lower](wchar_t left, char right) { return lower(left) == right; });
}

bool isTimeValue(std::wstring_view value)
{
    return value.size() == wholeSecondsLength
        || (value.size() > wholeSecondsLength && value[wholeSecondsLength] == L'.');
}

kx::CTime timeOf(std::wstring_view value)
{
    const auto number
        = [value](size_t start, size_t count) { return kx::parseInt64(value.substr(start, count), false); };
    kx::CTimeFields fields;
    fields.setDate(number(0, 4), number(4, 2), number(6, 2), unknownWeekDay);
    fields.setTime(number(8, 2), number(10, 2), number(12, 2));
    if (value.size() > wholeSecondsLength)
        fields.setFractSecond(kx::parseSimpleDouble(textOf(value.substr(wholeSecondsLength))));
    return fields.toTime();
}

} // namespace

CFTPDirEntry::CFTPDirEntry() = default;

CFTPDirEntry::CFTPDirEntry(const kx::String& line)
{
    readLine(line.toWide());
}

CFTPDirEntry::~CFTPDirEntry() = default;

void CFTPDirEntry::readLine(std::wstring_view line)
{
    const size_t space = line.find(L' ');
    if (space == std::wstring_view::npos)
        throwInvalidEntry(line);
    m_name = textOf(line.substr(space + 1));
    forEachField(line.substr(0, space), L';', [this, line](std::wstring_view fact) {
        const size_t equals = fact.find(L'=');
        if (equals == std::wstring_view::npos)
            throwInvalidEntry(line);
        readFact(fact.substr(0, equals), fact.substr(equals + 1));
    });
}

void CFTPDirEntry::readFact(std::wstring_view name, std::wstring_view value)
{
    if (isIgnoringCase(name, "type")) {
        if (isIgnoringCase(value, "file"))
            m_type = TypeFile;
        else if (isIgnoringCase(value, "dir"))
            m_type = TypeDir;
    } else if (isIgnoringCase(name, "size")) {
        m_size = kx::parseInt64(value, false);
    } else if (isIgnoringCase(name, "modify")) {
        m_modificationTime = isTimeValue(value) ? timeOf(value) : parseTimeValue(textOf(value).toLower());
    }
}

kx::CTime CFTPDirEntry::parseTimeValue(const kx::String& value)
{
    if (!isTimeValue(value.toWide()))
        throw kx::CError("Invalid FTP time value: '" + value + "'");
    return timeOf(value.toWide());
}

} // namespace norla
