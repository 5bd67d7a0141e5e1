#include "norla/ftp/CFTPDirEntry.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/ftp/tokens.h"

#include <algorithm>
#include <string>
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

bool hasUpperCase(std::wstring_view text)
{
    return std::any_of(
        text.begin(), text.end(), [](wchar_t character) { return character >= L'A' && character <= L'Z'; });
}

bool isTimeValue(std::wstring_view value)
{
    return value.size() == wholeSecondsLength
        || (value.size() > wholeSecondsLength && value[wholeSecondsLength] == L'.');
}

kx::CTime timeOf(std::wstring_view value)
{
    if (!isTimeValue(value))
        throw kx::CError("Invalid FTP time value: '" + textOf(value) + "'");
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
    std::wstring_view facts = line.substr(0, space);
    kx::String lowered; // most servers write facts in lower case: those are read where they stand
    if (hasUpperCase(facts)) {
        lowered = textOf(facts).toLower();
        facts = lowered.toWide();
    }
    forEachField(facts, L';', [this, line](std::wstring_view fact) {
        const size_t equals = fact.find(L'=');
        if (equals == std::wstring_view::npos)
            throwInvalidEntry(line);
        readFact(fact.substr(0, equals), fact.substr(equals + 1));
    });
}

void CFTPDirEntry::readFact(std::wstring_view name, std::wstring_view value)
{
    if (name == L"type") {
        if (value == L"file")
            m_type = TypeFile;
        else if (value == L"dir")
            m_type = TypeDir;
    } else if (name == L"size") {
        m_size = kx::parseInt64(value, false);
        m_hasSize = true;
    } else if (name == L"modify") {
        m_modificationTime = timeOf(value);
    }
}

kx::CTime CFTPDirEntry::parseTimeValue(const kx::String& value)
{
    return timeOf(value.toWide());
}

} // namespace norla
