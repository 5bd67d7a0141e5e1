#include "norla/core/headerEntry.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/whitespace.h"

namespace norla {

CHeaderEntry splitHeaderEntry(std::wstring_view line)
{
    constexpr char functionName[] = "CNetHeaders::splitEntry"; // as which applications know it
    const size_t colon = line.find(L':');
    if (colon == std::wstring_view::npos)
        throw kx::CInvalidArgError("entry contains no ':'", functionName);
    const CHeaderEntry entry{kx::trimmed(line.substr(0, colon)), kx::trimmed(line.substr(colon + 1))};
    if (entry.name.empty())
        throw kx::CInvalidArgError("name is empty", functionName);
    return entry;
}

} // namespace norla
