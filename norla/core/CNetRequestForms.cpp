// What a request sends of forms, and asks for of answers.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

void CNetRequest::setFormData(CFormData* form)
{
    m_rooms->form.set(form);
}

} // namespace norla
