#include "norla/core/CPrerequest.h"

#include "norla/core/CEasyHandle.h"

namespace norla {

CPrerequest::CPrerequest(CEasyHandle& handle) noexcept
    : m_handle(handle)
{
}

void CPrerequest::noticePointer(CURLoption option, void* value) noexcept
{
    if (option == CURLOPT_PREREQFUNCTION)
        m_callback = reinterpret_cast<curl_prereq_callback>(value);
    else if (option == CURLOPT_PREREQDATA)
        m_data = value;
}

void CPrerequest::forgetOptions() noexcept
{
    m_callback = nullptr;
    m_data = nullptr;
}

void CPrerequest::use(curl_prereq_callback callback, void* data)
{
    m_handle.set(CURLOPT_PREREQFUNCTION, callback);
    m_handle.set(CURLOPT_PREREQDATA, data);
}

int CPrerequest::callApplications(char* peerIP, char* localIP, int peerPort, int localPort) const
{
    return m_callback ? m_callback(m_data, peerIP, localIP, peerPort, localPort) : CURL_PREREQFUNC_OK;
}

} // namespace norla
