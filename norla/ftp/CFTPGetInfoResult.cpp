#include "norla/ftp/CFTPGetInfoResult.h"

#include "kx/base/CError.h"
#include "norla/core/CNetStringList.h"

namespace norla {

namespace {

kx::String withoutLineEnd(const kx::String& line)
{
    const kx::String lineEnd = "\r\n";
    return line.endsWith(lineEnd) ? line.substr(0, line.size() - lineEnd.size()) : line;
}

[[noreturn]] void throwNoInfo(const CNetStringList& lines)
{
    kx::String response;
    for (const auto line = lines.createIterator(); line->next();)
        response += line->getCurrent();
    kx::CProps props;
    props.set("response", response);
    throw kx::CError("Invalid response to FTP MLST request (no info line found).", kx::String(), -1, props);
}

} // namespace

CFTPGetInfoResult::CFTPGetInfoResult(const CNetStringList& lines)
{
    bool isFactLine = false;
    kx::P<kx::CError> unreadable; // the first line behind the last entry
    for (const auto line = lines.createIterator(); line->next();) {
        bool isFact = false;
        if (isFactLine) {
            try {
                m_entry = kx::newObj<CFTPDirEntry>(withoutLineEnd(line->getCurrent().trimLeft()));
                unreadable = nullptr; // what a server says on the way, such as a directory's message, is no fact
                isFact = true;
            } catch (const kx::CError& error) {
                if (!unreadable)
                    unreadable = error.clone();
            }
        }
        isFactLine = !isFact && line->getCurrent().startsWith("250-"); // one that is no fact begins a reply itself
    }
    if (unreadable)
        unreadable->throwClone();
    if (!m_entry)
        throwNoInfo(lines);
}

CFTPGetInfoResult::~CFTPGetInfoResult() = default;

} // namespace norla
