#pragma once

#include "kx/text/String.h"
#include "norla/files/CByteRanges.h"

#include <optional>
#include <string>
#include <string_view>

namespace norla {

/// By what a resource is known again: as far as the server has told. A value.
struct CValidators {
    std::string eTag;         ///< a strong one, with its quotation marks; else empty
    std::string lastModified; ///< the header's text, where it is a strong proof; else empty
    long long fileTime = -1;  ///< of FTP and SFTP, in seconds since 1970; -1: unknown

    /// Whether a part of it and another part that carry the same are parts of the same bytes.
    bool areStrong(const std::optional<long long>& size) const noexcept
    {
        return !eTag.empty() || !lastModified.empty() || (fileTime >= 0 && size);
    }

    friend bool operator==(const CValidators&, const CValidators&) = default;
};

/// What stands beside a part of a file, so that it can be resumed: of what it is a part, and which bytes are there. No
/// secret is in it: of the URL only what may be shown, and a digest. A value.
struct CDownloadRecord {
    std::string identity; ///< of the resource, 64 hexadecimal digits
    std::string place;    ///< for a person; without login, query and fragment
    CValidators validators;
    std::optional<long long> total; ///< in bytes
    long long modified = -1;        ///< when the resource was changed, in seconds since 1970; -1: unknown
    CByteRanges arrived;            ///< all of it was on the disk before the record said so

    /// As lines of text, the last of which is a digest of the others.
    std::string toText() const;

    /// @return empty for what is no such text, or is damaged, or makes no sense
    static std::optional<CDownloadRecord> fromText(std::string_view text);

    friend bool operator==(const CDownloadRecord&, const CDownloadRecord&) = default;
};

/// The SHA-256 of a resource's name, for CDownloadRecord::identity.
std::string identityOf(const kx::String& name);

} // namespace norla
