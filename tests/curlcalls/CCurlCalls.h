#pragma once

#include <curl/curl.h>

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace support {

/// Watches the calls that the library makes to libcurl, and makes chosen ones fail, as long as the object lives. One at
/// a time.
///
/// Works by interposition: linked into a test program, the functions of CCurlCalls.cpp stand before libcurl's own, to
/// which they pass on what they do not refuse. Any thread.
class CCurlCalls {
public:
    CCurlCalls();
    CCurlCalls(const CCurlCalls&) = delete;
    CCurlCalls& operator=(const CCurlCalls&) = delete;
    ~CCurlCalls();

    /// The options set since the construction or the last call, in order: "URL=http://host/", "UPLOAD=1",
    /// "CUSTOMREQUEST=null", "HTTPHEADER=[A: 1, B: 2]"; "set" where a value is no text or number. Without what the
    /// library sets once, when a request is first performed or managed, to keep waits short: the functions that open
    /// and close sockets, and CURLOPT_QUICK_EXIT.
    std::vector<std::string> takeOptions();

    /// The pointer that the option was last set to; null when it was not set.
    void* pointerOf(CURLoption option) const;

    /// Makes curl_easy_setopt() refuse this option from now on.
    void failOption(CURLoption option, CURLcode result = CURLE_OUT_OF_MEMORY);

    /// Makes a function fail: OPENSSL_init_ssl, curl_global_init, curl_global_cleanup (which throws then),
    /// curl_easy_init, curl_easy_setopt (whatever the option), curl_easy_getinfo, curl_easy_pause, curl_easy_escape,
    /// curl_slist_append, curl_url, curl_url_set, curl_url_get, curl_easy_strerror, curl_multi_strerror, and of the
    /// multi interface curl_multi_init, curl_multi_info_read (both answer null then), curl_multi_setopt,
    /// curl_multi_add_handle, curl_multi_remove_handle, curl_multi_fdset, curl_multi_timeout, curl_multi_poll,
    /// curl_multi_perform, curl_multi_socket_action and curl_multi_assign. Of curl_slist_append, curl_url,
    /// curl_url_set and curl_url_get also the calls that libcurl makes itself.
    /// @param skip how many calls still succeed before
    /// @param count how many fail then; -1 for all
    void fail(const std::string& function, int skip = 0, int count = -1);

    /// Lets everything succeed again.
    void succeed();

    /// What the failing functions of the multi interface answer; CURLM_INTERNAL_ERROR at first. With
    /// CURLM_CALL_MULTI_PERFORM they do their work all the same.
    void setMultiResult(CURLMcode result);

    /// What curl_multi_timeout() tells from now on, in milliseconds.
    void setMultiTimeout(long timeout);

    /// What curl_easy_getinfo() answers from now on, of whichever handle, to a question for a number.
    void setInfo(CURLINFO info, long long value);

    /// Something that curl_multi_info_read() tells before libcurl's own messages.
    void addMessage(const CURLMsg& message);

    /// Frees the multi handles that curl_multi_init() has made and nobody has cleaned up.
    /// @return how many there were
    size_t cleanUpMultis();

    /// The names of the options that fail("curl_easy_setopt") has refused.
    std::set<std::string> refusedOptions() const;

    /// How often the function was called; known for those of fail(), for curl_easy_cleanup, curl_multi_cleanup and
    /// OPENSSL_thread_stop.
    int countOf(const std::string& function) const;

    /// The place of the first call of such a function among all calls of them, counted from 1; 0 when there was none.
    int placeOf(const std::string& function) const;

    /// What curl_global_init() was last called with; nothing when it was not.
    std::optional<long> globalInitFlags() const;

    /// Whether SIGPIPE was kept from the calling thread during the last call of such a function; false when there was
    /// none.
    bool wasSigPipeBlocked(const std::string& function) const;

    /// For the interposed functions alone: counts the call and tells whether it is to fail.
    bool isToFail(const std::string& function);
    CURLcode resultFor(CURLoption option, const std::string& name, const std::string& value);
    void setPointer(CURLoption option, void* value);
    void setGlobalInitFlags(long flags);
    CURLMcode multiResult() const;
    void changeTimeout(long& timeout) const;
    bool answersInfo(CURLINFO info, void* value) const;
    CURLMsg* nextMessage();
    void addMulti(CURLM* multi);
    void removeMulti(CURLM* multi);

private:
    static bool isPlumbing(CURLoption option);

    struct CFault {
        int skip = 0;
        int count = 0;
    };

    mutable std::mutex m_mutex;
    std::vector<std::string> m_options;
    std::map<CURLoption, void*> m_pointers;
    std::map<CURLoption, CURLcode> m_failingOptions;
    std::set<std::string> m_refusedOptions;
    std::map<std::string, CFault> m_faults;
    std::map<std::string, int> m_counts;
    std::map<std::string, int> m_places;
    int m_lastPlace = 0;
    std::optional<long> m_globalInitFlags;
    std::set<std::string> m_calledWithSigPipeBlocked;
    CURLMcode m_multiResult = CURLM_INTERNAL_ERROR;
    std::optional<long> m_multiTimeout;
    std::map<CURLINFO, long long> m_infos;
    std::deque<CURLMsg> m_messages;
    CURLMsg m_lastMessage{};
    std::set<CURLM*> m_multis;
};

} // namespace support
