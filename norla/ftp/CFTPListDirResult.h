#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TBuffer.h"
#include "norla/ftp/CFTPDirEntry.h"

#include <string>
#include <string_view>

namespace norla {

/// A directory's listing, as a server sends it after MLSD. Immutable.
class KX_EXPORT CFTPListDirResult : public virtual kx::CBase {
public:
    /// What to do with lines that cannot be read: names that are not UTF-8, facts that are none, sizes and times that
    /// are no numbers.
    enum UnreadableLines : int {
        RefuseUnreadable = 0, ///< one of them loses the whole listing
        KeepUnreadable = 1    ///< they are kept apart from the entries
    };

    /// Parses the listing, a line of facts each in UTF-8; empty lines are passed over.
    /// @throws kx::CError as CFTPDirEntry for the first line that it cannot read, or when the listing is not UTF-8
    explicit CFTPListDirResult(const kx::TBuffer<unsigned char>& data);

    /// The same; with KeepUnreadable every line that can be read is an entry, and nothing is thrown for the others.
    CFTPListDirResult(const kx::TBuffer<unsigned char>& data, UnreadableLines unreadableLines);
    ~CFTPListDirResult() override;

    /// In the server's order; with the directory itself and its parent, where the server lists them.
    const kx::TArray<kx::P<CFTPDirEntry>>& getEntries() const noexcept { return m_entries; }

    /// The lines that could not be read, in the server's order, its bytes without their line ends. Empty unless the
    /// listing was made with KeepUnreadable.
    const kx::TArray<std::string>& getUnreadableLines() const noexcept { return m_unreadableLines; }

private:
    void readAll(std::string_view data);
    void readLineByLine(std::string_view data);
    void addEntry(std::wstring_view line);

    kx::TArray<kx::P<CFTPDirEntry>> m_entries;
    kx::TArray<std::string> m_unreadableLines;
};

} // namespace norla
