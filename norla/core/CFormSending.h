#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/http/CFormData.h"

namespace norla {

class CSending;
class CSentHeaders;

/// The form that a transfer sends, and what of its method, body and header lines comes from that. Used by the thread of
/// the transfer.
class CFormSending {
public:
    /// @param sending and @param headers of the same transfer, which outlive this object
    CFormSending(CSending& sending, CSentHeaders& headers);
    CFormSending(const CFormSending&) = delete;
    CFormSending& operator=(const CFormSending&) = delete;

    /// As CNetRequest::setFormData().
    void set(CFormData* form);

    /// A transfer begins, with the parts that the form has now; unless another body has been set, which makes this
    /// object forget the form.
    void begin();

    /// The parts begin at their start, if the form is sent. @throws what a part throws that cannot
    void rewind();

    /// Another body is about to be set past this object.
    void giveWay();

private:
    void forgetForm();

    CSending& m_sending;
    CSentHeaders& m_headers;
    kx::P<CFormData> m_form;
    kx::String m_methodBefore;
};

} // namespace norla
