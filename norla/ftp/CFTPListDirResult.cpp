#include "norla/ftp/CFTPListDirResult.h"

#include "norla/ftp/tokens.h"

#include <string>

namespace norla {

CFTPListDirResult::CFTPListDirResult(const kx::TBuffer<unsigned char>& data)
{
    const kx::String text = kx::String::fromUTF8({reinterpret_cast<const char*>(data.getData()), data.getSize()});
    forEachLine(text.toWide(), [this](std::wstring_view line) {
        m_entries.push_back(kx::newObj<CFTPDirEntry>());
        m_entries.back()->readLine(line);
    });
}

CFTPListDirResult::~CFTPListDirResult() = default;

} // namespace norla
