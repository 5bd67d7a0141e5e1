#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"
#include "kx/time/CTime.h"

#include <string_view>

namespace norla {

/// What a server says about one file or directory in a line of facts (RFC 3659 section 7). Immutable.
class KX_EXPORT CFTPDirEntry : public virtual kx::CBase {
public:
    enum Type : int {
        TypeOther = 0, ///< links, the directory itself ("cdir"), its parent ("pdir"), and what the server does not say
        TypeFile = 1,
        TypeDir = 2
    };

    /// An entry without a name.
    CFTPDirEntry();

    /// Parses a line such as "type=file;size=1024;modify=20200131235959; report.txt". Facts beside these three are
    /// ignored.
    /// @throws kx::CError "Invalid FTP dir entry: '...'"; as parseTimeValue(); as kx::parseInt64() for the size
    explicit CFTPDirEntry(const kx::String& line);

    ~CFTPDirEntry() override;

    Type getType() const noexcept { return m_type; }

    /// As the server wrote it. In a listing a plain name, in the answer to MLST as a rule the whole path.
    const kx::String& getName() const noexcept { return m_name; }

    /// In bytes; 0 when the server did not say.
    long long getSize() const noexcept { return m_size; }

    /// Whether the server said a size, be it 0. For directories most do not.
    bool hasSize() const noexcept { return m_hasSize; }

    /// Unset when the server did not say.
    kx::CTime getModificationTime() const noexcept { return m_modificationTime; }

    /// Parses YYYYMMDDHHMMSS with an optional fraction of a second, as in "20200131235959.123", in UTC (RFC 3659
    /// section 2.3).
    /// @throws kx::CError "Invalid FTP time value: '...'"; as kx::parseInt64() and kx::CTimeFields::toTime() for text
    /// that is no time
    static kx::CTime parseTimeValue(const kx::String& value);

private:
    friend class CFTPListDirResult; // reads its lines where they stand

    void readLine(std::wstring_view line);
    void readFact(std::wstring_view name, std::wstring_view value);

    Type m_type = TypeOther;
    kx::String m_name;
    long long m_size = 0;
    bool m_hasSize = false;
    kx::CTime m_modificationTime;
};

} // namespace norla
