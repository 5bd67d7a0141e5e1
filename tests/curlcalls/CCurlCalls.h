#pragma once

#include <curl/curl.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace support {

/// Watches the calls that the library makes to libcurl, and makes chosen ones fail, as long as the object lives. One at a time.
///
/// Works by interposition: linked into a test program, the functions of CCurlCalls.cpp stand before libcurl's own, to which
/// they pass on what they do not refuse. Any thread.
class CCurlCalls {
public:
    CCurlCalls();
    CCurlCalls(const CCurlCalls&) = delete;
    CCurlCalls& operator=(const CCurlCalls&) = delete;
    ~CCurlCalls();

    /// The options set since the construction or the last call, in order: "URL=http://host/", "UPLOAD=1",
    /// "CUSTOMREQUEST=null", "HTTPHEADER=[A: 1, B: 2]"; "set" where a value is no text or number.
    std::vector<std::string> takeOptions();

    /// The pointer that the option was last set to; null when it was not set.
    void* pointerOf(CURLoption option) const;

    /// Makes curl_easy_setopt() refuse this option from now on.
    void failOption(CURLoption option, CURLcode result = CURLE_OUT_OF_MEMORY);

    /// Makes a function fail: OPENSSL_init_ssl, curl_global_init, curl_global_cleanup (which throws then), curl_easy_init, curl_easy_getinfo, curl_easy_escape, curl_slist_append,
    /// curl_easy_strerror, curl_multi_strerror.
    /// @param skip how many calls still succeed before
    /// @param count how many fail then; -1 for all
    void fail(const std::string& function, int skip = 0, int count = -1);

    /// Lets everything succeed again.
    void succeed();

    /// How often the function was called; known for those of fail(), and for curl_easy_cleanup.
    int countOf(const std::string& function) const;

    /// For the interposed functions alone: counts the call and tells whether it is to fail.
    bool isToFail(const std::string& function);
    CURLcode resultFor(CURLoption option, const std::string& described);
    void setPointer(CURLoption option, void* value);

private:
    struct CFault {
        int skip = 0;
        int count = 0;
    };

    mutable std::mutex m_mutex;
    std::vector<std::string> m_options;
    std::map<CURLoption, void*> m_pointers;
    std::map<CURLoption, CURLcode> m_failingOptions;
    std::map<std::string, CFault> m_faults;
    std::map<std::string, int> m_counts;
};

} // namespace support
