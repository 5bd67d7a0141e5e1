// What a request sends and asks for beyond libcurl's options: forms, tokens, compressed answers.

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

void CNetRequest::setAcceptEncoding(const CAcceptEncoding& options)
{
    m_rooms->unpacking.set(options);
}

} // namespace norla
