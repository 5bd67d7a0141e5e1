#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"

#include <string_view>

namespace norla {

class CServerInfo;

/// Makes a map out of the header lines of one HTTP response, one line at a time. Belongs to one request and its thread.
class KX_EXPORT CHeaderAssembler : public virtual kx::CBase {
public:
    CHeaderAssembler();
    CHeaderAssembler(const CHeaderAssembler&) = delete;
    CHeaderAssembler& operator=(const CHeaderAssembler&) = delete;
    ~CHeaderAssembler() override;

    /// Starts with the next response: an empty map. The server info stays.
    void reset();

    /// Takes one line as the server sent it, with its line end. The line "\r\n" ends the headers: the server info is
    /// updated and every further line ignored. A line that begins with white space continues the one before (obsolete
    /// folding, RFC 9112 section 5.2); so does a bare "\n".
    /// @throws kx::CError "Error parsing HTTP header: first line starts with whitespace."
    /// @throws kx::CInvalidArgError as CNetHeaders::splitEntry(). In both cases nothing has changed.
    void handleHeaderLine(const kx::String& line);

    /// Lower-case name to value without surrounding white space; repeated headers are joined by ",".
    const kx::TMap<kx::String, kx::String>& getHeaderMap() const noexcept { return m_headerMap; }

    /// The object that learns from each complete header block; null for none. A reference is kept.
    void setServerInfoToUpdate(CServerInfo* serverInfo);

private:
    using Map = kx::TMap<kx::String, kx::String>;

    void finish();
    void startHeader(const kx::String& line);
    kx::String& newEntry(Map::const_iterator place, std::wstring_view value);
    static kx::String& join(kx::String& stored, std::wstring_view value);
    void continueHeader(const kx::String& line);

    Map m_headerMap;
    Map m_spareEntries;                // of the last response, those that this one has not used again
    kx::String m_name;                 // of the last line that began a header
    kx::String* m_lastValue = nullptr; // in the map, of the last line that began a header
    bool m_finished = false;
    kx::P<CServerInfo> m_serverInfoToUpdate;
};

} // namespace norla
