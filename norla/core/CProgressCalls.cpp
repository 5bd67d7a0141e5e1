#include "norla/core/CProgressCalls.h"

#include "norla/core/CEasyHandle.h"

namespace norla {

CProgressCalls::CProgressCalls(CEasyHandle& handle) noexcept
    : m_handle(handle)
    , m_calls(handle, CURLOPT_XFERINFOFUNCTION, CURLOPT_XFERINFODATA)
{
}

void CProgressCalls::noticePointer(CURLoption option, void* value)
{
    if (m_calls.notice(option, value))
        m_calls.stay();
    else if (static_cast<int>(option) == CURLOPTTYPE_FUNCTIONPOINT + 56) // CURLOPT_PROGRESSFUNCTION, deprecated
        m_oldCallback = reinterpret_cast<curl_progress_callback>(value);
}

void CProgressCalls::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_NOPROGRESS)
        m_isWanted = value == 0;
}

void CProgressCalls::forgetOptions() noexcept
{
    m_calls.forget();
    m_oldCallback = nullptr;
    m_isWanted = false;
}

void CProgressCalls::use(curl_xferinfo_callback callback, void* data)
{
    m_calls.use(callback, data);
    m_handle.setNumber(CURLOPT_NOPROGRESS, 0);
}

int CProgressCalls::callApplications(
    curl_off_t toDownload, curl_off_t downloaded, curl_off_t toUpload, curl_off_t uploaded) const
{
    if (!m_isWanted)
        return 0;
    void* const data = m_calls.getData();
    if (const auto callback = reinterpret_cast<curl_xferinfo_callback>(m_calls.getFunction()))
        return callback(data, toDownload, downloaded, toUpload, uploaded);
    if (m_oldCallback)
        return m_oldCallback(data, static_cast<double>(toDownload), static_cast<double>(downloaded),
            static_cast<double>(toUpload), static_cast<double>(uploaded));
    return CURL_PROGRESSFUNC_CONTINUE;
}

} // namespace norla
