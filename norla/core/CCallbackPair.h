#pragma once

#include "norla/core/CEasyHandle.h"

#include <curl/curl.h>

namespace norla {

/// The two options of a callback, function and data, of which libcurl gets both from the request or both from the
/// application: neither function knows what to do with the other's data. Used by the thread of the transfer.
class CCallbackPair {
public:
    /// @param handle outlives this object
    CCallbackPair(CEasyHandle& handle, CURLoption functionOption, CURLoption dataOption) noexcept;
    CCallbackPair(const CCallbackPair&) = delete;
    CCallbackPair& operator=(const CCallbackPair&) = delete;

    /// An option that takes a pointer was set by the application; stay() or giveWay() comes next.
    /// @return whether it is one of the two
    bool notice(CURLoption option, void* value) noexcept;

    /// Puts the request's own in the place of the application's.
    /// @param function which takes the data; null for none
    /// @throws CCURLError if libcurl refuses
    template <typename TFunction>
    void use(TFunction* function, void* data)
    {
        m_isOwn = true;
        m_ownFunction = reinterpret_cast<void*>(function);
        m_ownData = data;
        m_handle.set(m_functionOption, function);
        m_handle.set(m_dataOption, data);
    }

    /// Whether libcurl has the request's own.
    bool isOwn() const noexcept { return m_isOwn; }

    /// Puts the request's own back where libcurl had them. @throws as use()
    void stay();

    /// Gives libcurl the application's where it had the request's own. @throws as use()
    void giveWay();

    /// Where the application's function goes before the request's own: whichever of the two it is. @throws as use()
    void settle() { m_function ? giveWay() : stay(); }

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forget() noexcept;

    /// The application's.
    void* getFunction() const noexcept { return m_function; }
    void* getData() const noexcept { return m_data; }

private:
    CEasyHandle& m_handle;
    const CURLoption m_functionOption;
    const CURLoption m_dataOption;
    void* m_function = nullptr; // the application's
    void* m_data = nullptr;
    void* m_ownFunction = nullptr;
    void* m_ownData = nullptr;
    bool m_isOwn = false;
};

} // namespace norla
