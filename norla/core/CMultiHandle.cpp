#include "norla/core/CMultiHandle.h"

#include "norla/core/CCURLError.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/CSigPipeBlock.h"

#include <utility>

namespace norla {

CMultiHandle::CMultiHandle(long idleConnections)
    : m_sockets(std::make_unique<COpenSockets>())
{
    CGlobalInit::get();
    m_handle = curl_multi_init();
    if (!m_handle)
        throw kx::CError("Error creating curl multi handle.");
    curl_multi_setopt(m_handle, CURLMOPT_MAXCONNECTS, idleConnections); // cannot fail for a number
}

CMultiHandle::~CMultiHandle()
{
    if (!m_handle)
        return;
    const CSigPipeBlock block; // the connections say goodbye here
    m_sockets->stopReading();
    curl_multi_cleanup(m_handle);
}

void CMultiHandle::keepForEver() noexcept
{
    COpenSockets::keepForEver(std::move(m_sockets));
    m_handle = nullptr;
}

void CMultiHandle::check(CURLMcode result)
{
    if (result != CURLM_OK)
        throw CCURLError(result, "", "", -1, "");
}

} // namespace norla
