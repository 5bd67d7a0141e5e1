#pragma once

#include "kx/containers/TBuffer.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace norla {

/// A libcurl easy handle: its options with their types, its information values, the text of its last error. Nobody else
/// calls curl_easy_setopt() and curl_easy_getinfo(). Used by one thread at a time.
class CEasyHandle {
public:
    /// @throws kx::CError "Error creating curl easy handle."; as CGlobalInit::get()
    CEasyHandle();
    CEasyHandle(const CEasyHandle&) = delete;
    CEasyHandle& operator=(const CEasyHandle&) = delete;

    CURL* get() const noexcept { return m_handle.get(); }

    /// The options of a new handle: connections and caches stay, cookies go, but for those of a share.
    /// useErrorBuffer() has to be called again.
    void reset();

    /// Uses the cookies of a share in place of own ones; null for none. It outlives their use here.
    void shareCookies(CURLSH* share);

    /// Errors of libcurl are kept here.
    void useErrorBuffer() { set(CURLOPT_ERRORBUFFER, m_errorBuffer.getData()); }

    /// libcurl reads its variadic argument as one of these types and checks nothing.
    /// @throws CCURLError when libcurl refuses
    template <typename TValue>
    void set(CURLoption option, TValue value)
    {
        static_assert(std::is_same_v<TValue, long> || std::is_same_v<TValue, curl_off_t> || std::is_pointer_v<TValue>);
        clearError();
        requireSuccess(curl_easy_setopt(m_handle.get(), option, value));
    }

    /// An int, a bool or a long of an option that takes a long.
    void setNumber(CURLoption option, long value) { set(option, value); }

    /// Nothing where a pointer or a text is taken.
    void setNull(CURLoption option) { set(option, static_cast<void*>(nullptr)); }

    /// A text that libcurl copies. The login of a proxy is never shown in an error.
    /// @throws CCURLError when libcurl refuses
    void setText(CURLoption option, const std::string& bytes);

    /// @throws CCURLError for a value of another type
    int getLong(CURLINFO info);
    double getDouble(CURLINFO info);
    long long getInt64(CURLINFO info);

    /// Empty when there is none. @throws also kx::CError when it is not UTF-8; CCURLError also for CURLINFO_PRIVATE and
    /// CURLINFO_FTP_ENTRY_PATH
    kx::String getString(CURLINFO info);

    /// For callbacks and for the end of a transfer: the error text stays.
    /// @return whether libcurl has answered
    template <typename TValue>
    bool ask(CURLINFO info, TValue& value) const noexcept
    {
        return curl_easy_getinfo(m_handle.get(), info, &value) == CURLE_OK;
    }

    /// Lets libcurl look at the transfer once more, behind what it does now, also where nothing happens to its sockets.
    /// @throws CCURLError when it refuses
    void lookAgain() const;
    static CURLcode lookAgain(CURL* handle) noexcept;

    /// Empty when there is none; valid until libcurl is asked or told something else.
    std::string_view askText(CURLINFO info) const noexcept
    {
        const char* text = nullptr;
        return ask(info, text) && text ? text : std::string_view();
    }

    void clearError() noexcept { m_errorBuffer.getData()[0] = 0; }

    /// What libcurl said about its last failure; empty when it said nothing.
    kx::String getErrorMessage() const;

    /// @throws kx::CError "Error URL-escaping a string."; when the text has no UTF-8 form
    kx::String urlEscape(const kx::String& text) const;

private:
    struct CCleanup {
        void operator()(CURL* handle) const noexcept;
    };

    template <typename TValue>
    TValue get(CURLINFO info, int type);
    void requireSuccess(CURLcode result) const;

    kx::TBuffer<char> m_errorBuffer;
    std::unique_ptr<CURL, CCleanup> m_handle;       // goes before the buffer to which its errors come
    kx::TMap<CURLoption, kx::String> m_proxyLogins; // "user:password@" of each proxy's text
    bool m_hasCookies = false;                      // libcurl keeps some, and goes on with it
    bool m_sharesCookies = false;
};

} // namespace norla
