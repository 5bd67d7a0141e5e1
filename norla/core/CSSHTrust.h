#pragma once

#include "norla/core/CCallbackPair.h"
#include "norla/core/CKnownHostsFile.h"
#include "norla/core/CSSHOptions.h"

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace norla {

class CEasyHandle;
class CFirstError;
class CRequestURL;

/// Who is believed in an SSH connection, and as whom one logs in, when it was told by CSSHOptions. Judges the server's
/// key itself: libcurl, with libssh2, knows neither patterns nor revoked keys, takes the kind of key of any hashed host
/// for that of this one, and writes whole files anew. Used by the thread of the transfer.
class CSSHTrust {
public:
    /// @param handle, errors where what the callback throws is kept; both outlive this object
    CSSHTrust(CEasyHandle& handle, CFirstError& errors);
    CSSHTrust(const CSSHTrust&) = delete;
    CSSHTrust& operator=(const CSSHTrust&) = delete;
    ~CSSHTrust();

    /// Looks at all of it before anything is set. @throws as CNetRequest::setSSHOptions()
    void set(const CSSHOptions& options);

    /// The least that is to be demanded: the server is in the user's usual file of known hosts. How to log in stays as
    /// it is. @throws CCURLError if libcurl refuses
    void demandProof();

    /// What was set by the application; other options than those that matter here are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;
    void noticeText(CURLoption option, const std::string& bytes);
    /// Null for a text was set, or the function that judges in place of this object, or its data. @throws CCURLError if
    /// libcurl refuses to keep the request's own, or to go back to the application's
    void noticePointer(CURLoption option, void* value);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// All that matters of a connection, to compare it with others; empty when nothing was told.
    const std::string& getDescription() const noexcept { return m_description; }

    /// A transfer begins: the server will be asked for a key of a kind by which it is known.
    /// @throws kx::CError naming the file of known hosts, when it cannot be read
    void begin(const CRequestURL& url);

    /// What is to be said about a failure beside libcurl's words for it; empty when there is nothing.
    kx::String explain(CURLcode result, const kx::String& message) const;

private:
    void setJudge();
    void giveWay();
    CKnownHosts::CHost hostOf(const std::string& url) const;
    std::string wantedKeyType(const CKnownHosts::CHost& host) const;
    void askForKeyType(const CKnownHosts::CHost& host);
    void closeHint() noexcept;

    bool believes(std::string_view key);
    bool believesUnknown(const CSSHHostKey& shown, const CKnownHosts::CHost& host, std::string_view key);
    bool follows(CKnownHosts::Verdict verdict, const CSSHHostKey& shown, const CKnownHosts::CHost& host);
    bool refuse(const kx::String& reason);
    static int hostKeyCallback(void* trust, int keyType, const char* key, size_t size) noexcept;

    CEasyHandle& m_handle;
    CCallbackPair m_judge;
    CFirstError& m_errors;
    CSSHOptions m_options;
    CKnownHostsFile m_file;
    std::string m_description;
    std::string m_keyType;    // that was asked for in this transfer; empty for none
    kx::String m_explanation; // why the server was not believed
    unsigned long m_setCount = 0;
    int m_hint = -1; // a file for libcurl alone
    int m_port = 0;  // CURLOPT_PORT
    bool m_isSet = false;
};

} // namespace norla
