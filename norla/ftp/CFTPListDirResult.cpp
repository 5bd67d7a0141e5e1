#include "norla/ftp/CFTPListDirResult.h"

#include "kx/base/CError.h"
#include "norla/ftp/tokens.h"

#include <utility>

namespace norla {

namespace {

std::string_view textOf(const kx::TBuffer<unsigned char>& data)
{
    return {reinterpret_cast<const char*>(data.getData()), data.getSize()};
}

} // namespace

CFTPListDirResult::CFTPListDirResult(const kx::TBuffer<unsigned char>& data)
{
    readAll(textOf(data));
}

CFTPListDirResult::CFTPListDirResult(const kx::TBuffer<unsigned char>& data, UnreadableLines unreadableLines)
{
    if (unreadableLines == KeepUnreadable)
        readLineByLine(textOf(data));
    else
        readAll(textOf(data));
}

CFTPListDirResult::~CFTPListDirResult() = default;

void CFTPListDirResult::readAll(std::string_view data)
{
    const kx::String text = kx::String::fromUTF8(data);
    forEachLine(std::wstring_view(text.toWide()), [this](std::wstring_view line) { addEntry(line); });
}

void CFTPListDirResult::readLineByLine(std::string_view data)
{
    forEachLine(data, [this](std::string_view line) { // in UTF-8 no byte of a character looks like a line end
        try {
            addEntry(kx::String::fromUTF8(line).toWide());
        } catch (const kx::CError&) {
            m_unreadableLines.emplace_back(line);
        }
    });
}

void CFTPListDirResult::addEntry(std::wstring_view line)
{
    auto entry = kx::newObj<CFTPDirEntry>();
    entry->readLine(line);
    m_entries.push_back(std::move(entry));
}

} // namespace norla
