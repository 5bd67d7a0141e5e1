#pragma once

#include <curl/curl.h>

namespace norla {

class CTransferRecord;

/// Whether what a transfer asks of its server does harm when it is asked twice. Used by the thread of the transfer.
class CSideEffects {
public:
    /// What was set; other options than those that say so are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;
    void noticePointer(CURLoption option, bool isThere) noexcept;

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept { *this = CSideEffects(); }

    /// As CRepeatability::isHarmless says. False when no transfer has begun.
    /// @param record of the transfer, which has ended
    bool areHarmless(const CTransferRecord& record) const;

    /// Whether libcurl itself reads the body, piece by piece, from what the application has given it alone.
    bool hasBodyOfLibcurls() const noexcept { return m_hasMime; }

private:
    bool areHarmlessForFiles(const CTransferRecord& record) const;

    bool m_appends = false;
    bool m_resumes = false;
    bool m_hasCommands = false; // each of these before, in the middle and behind
    bool m_hasPreCommands = false;
    bool m_hasPostCommands = false;
    bool m_hasMime = false;
};

} // namespace norla
