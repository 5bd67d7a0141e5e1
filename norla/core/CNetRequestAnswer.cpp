// What a request says of itself and of the answer that has come.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

kx::String CNetRequest::getURL() const
{
    return m_rooms->url.toString();
}

kx::String CNetRequest::getHTTPMethod() const
{
    const kx::String& method = m_rooms->sending.getMethod();
    return method.isEmpty() ? "GET" : method;
}

kx::P<CNetHeaders> CNetRequest::getCustomHTTPHeaders()
{
    return m_rooms->headers.getCallers();
}

const CNetRequest::HeaderMap& CNetRequest::getResponseHeaderMap() const
{
    return m_rooms->response.getHeaderMap();
}

CNetStringList* CNetRequest::getResponseInfo() const
{
    return m_rooms->response.getLines();
}

kx::P<CNetRequest::Buffer> CNetRequest::getDefaultReceiveBuffer() const
{
    return m_rooms->response.getDefaultBuffer();
}

bool CNetRequest::usesDefaultReceiveBuffer() const
{
    return m_rooms->response.hasDefaultSink();
}

int CNetRequest::getInfoLong(CURLINFO info)
{
    return m_rooms->handle.getLong(info);
}

double CNetRequest::getInfoDouble(CURLINFO info)
{
    return m_rooms->handle.getDouble(info);
}

long long CNetRequest::getInfoInt64(CURLINFO info)
{
    return m_rooms->handle.getInt64(info);
}

kx::String CNetRequest::getInfoString(CURLINFO info)
{
    return m_rooms->handle.getString(info);
}

int CNetRequest::getResponseCode()
{
    return getInfoLong(CURLINFO_RESPONSE_CODE);
}

// libcurl marks these values as deprecated; their replacements are of another type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

double CNetRequest::getDownloadedBytes()
{
    return getInfoDouble(CURLINFO_SIZE_DOWNLOAD);
}

double CNetRequest::getDownloadSize()
{
    return getInfoDouble(CURLINFO_CONTENT_LENGTH_DOWNLOAD);
}

double CNetRequest::getAvgDownloadSpeed()
{
    return getInfoDouble(CURLINFO_SPEED_DOWNLOAD);
}

double CNetRequest::getUploadedBytes()
{
    return getInfoDouble(CURLINFO_SIZE_UPLOAD);
}

double CNetRequest::getUploadSize()
{
    return getInfoDouble(CURLINFO_CONTENT_LENGTH_UPLOAD);
}

double CNetRequest::getAvgUploadSpeed()
{
    return getInfoDouble(CURLINFO_SPEED_UPLOAD);
}

#pragma GCC diagnostic pop

kx::String CNetRequest::getResponseCodeDomain() const
{
    return m_rooms->url.getResponseCodeDomain();
}

kx::String CNetRequest::urlEscape(const kx::String& text)
{
    return m_rooms->handle.urlEscape(text);
}

} // namespace norla
