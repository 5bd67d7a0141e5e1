// The header lines of a response, as libcurl hands them over one by one.
#include "kx/base/CError.h"
#include "norla/http/CHeaderAssembler.h"
#include "norla/http/CServerInfo.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

namespace {

void handleLine(norla::CHeaderAssembler& assembler, std::string_view bytes)
{
    try {
        assembler.handleHeaderLine(kx::String::fromUTF8(bytes));
    } catch (const kx::CError&) {
        // refused, as it may be
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    norla::CHeaderAssembler assembler;
    assembler.setServerInfoToUpdate(kx::newObj<norla::CServerInfo>().get());
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n') == rest.npos ? rest.npos : rest.find('\n') + 1);
        handleLine(assembler, line);
        rest.remove_prefix(line.size());
    }
    for (const auto& [name, value] : assembler.getHeaderMap()) {
        require(!name.isEmpty() && name == name.toLower().trim(), "a header name is lower case and trimmed");
        require(name.find(L':') == kx::String::npos, "a header name has no colon");
        require(!value.endsWith("\r") && !value.endsWith("\n"), "a header value has no line end");
    }
    return 0;
}
