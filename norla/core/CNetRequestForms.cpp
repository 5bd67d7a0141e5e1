// What a request sends and asks for beyond libcurl's options: forms, tokens, cookies, compressed answers.

#include "norla/core/CCookieJar.h"
#include "norla/core/CNetRequestRooms.h"

namespace norla {

void CNetRequest::setFormData(CFormData* form)
{
    m_rooms->form.set(form);
}

void CNetRequest::setBearerToken(const kx::String& token)
{
    m_rooms->token.set(token);
}

// The old jar is dropped last: libcurl holds on to it until then.
void CNetRequest::setCookieJar(CCookieJar* jar)
{
    m_rooms->handle.shareCookies(jar ? jar->getShare() : nullptr);
    m_rooms->cookieJar = jar;
}

void CNetRequest::setAcceptEncoding(const CAcceptEncoding& options)
{
    m_rooms->unpacking.set(options);
}

} // namespace norla
