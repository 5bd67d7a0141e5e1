#include "norla/http/util.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <algorithm>

namespace norla {

namespace {

[[noreturn]] void throwInvalidStatusLine(const kx::String& line)
{
    throw kx::CError("Invalid HTTP status line: '" + line + "'");
}

int parseStatusCode(const kx::String& line, const kx::String& code)
{
    try {
        return static_cast<int>(kx::parseInt64(code, false));
    } catch (const kx::CError&) {
        throwInvalidStatusLine(line);
    }
}

} // namespace

void parseHTTPStatusLine(const kx::String& line, int& code, kx::String& info)
{
    const size_t space = line.find(L' ');
    if (line.substr(0, 5).toLower() != "http/" || space == kx::String::npos)
        throwInvalidStatusLine(line);
    const size_t codeEnd = std::min(line.find(L' ', space + 1), line.size());
    code = parseStatusCode(line, line.substr(space + 1, codeEnd - space - 1));
    info = line.substr(codeEnd).trim();
}

int getStatusCodeFromHTTPStatusLine(const kx::String& line)
{
    int code = 0;
    kx::String info;
    parseHTTPStatusLine(line, code, info);
    return code;
}

kx::String getInfoFromHTTPStatusLine(const kx::String& line)
{
    int code = 0;
    kx::String info;
    parseHTTPStatusLine(line, code, info);
    return info;
}

} // namespace norla
