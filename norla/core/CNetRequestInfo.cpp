// What a request tells of a transfer, beside its answer.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

CTransferInfo CNetRequest::getTransferInfo() const
{
    return m_rooms->record.getInfo();
}

} // namespace norla
