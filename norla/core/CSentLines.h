#pragma once

#include "kx/containers/TMap.h"

#include <curl/curl.h>

#include <string>

namespace norla {

/// The lines that go out as the caller has written them: header fields, commands of FTP and SFTP, the addresses of a
/// mail. libcurl looks at none of them. Used by the thread of the transfer.
class CSentLines {
public:
    /// An option was set; others than those that matter here are ignored.
    /// @param value a list of libcurl's, which outlives the transfer, or a mail's sender
    void noticePointer(CURLoption option, const void* value);
    void noticeText(CURLoption option, const std::string& bytes);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// @param headers of the request, as the caller has them now
    /// @throws kx::CInvalidArgError naming what holds a line end, with which it would begin another line
    void requireOneLineEach(const curl_slist* headers) const;

private:
    kx::TMap<CURLoption, const curl_slist*> m_lists;
    std::string m_sender;
};

} // namespace norla
