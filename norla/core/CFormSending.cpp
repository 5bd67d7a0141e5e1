#include "norla/core/CFormSending.h"

#include "norla/core/CSending.h"
#include "norla/core/CSentHeaders.h"

namespace norla {

CFormSending::CFormSending(CSending& sending, CSentHeaders& headers)
    : m_sending(sending)
    , m_headers(headers)
{
}

void CFormSending::set(CFormData* form)
{
    begin(); // what is no longer sent is not put back
    if (!form) {
        forgetForm();
        return;
    }
    if (!m_form)
        m_methodBefore = m_sending.getMethod();
    m_form = form;
    m_sending.setSizedSource(form, form->getLength());
    m_sending.setMethod("POST");
    m_headers.setLine("Content-Type", form->getContentType().toLatin1(), CSentHeaders::Precedence::Own);
}

void CFormSending::forgetForm()
{
    if (!m_form)
        return;
    m_form = nullptr;
    m_sending.setSource(nullptr);
    m_sending.setMethod(m_methodBefore);
    m_headers.removeLine("Content-Type");
}

void CFormSending::rewind()
{
    if (m_form && m_sending.hasSource(*m_form))
        m_form->rewindParts();
}

void CFormSending::giveWay()
{
    begin();
    if (!m_form)
        return;
    m_sending.setSource(nullptr);
    begin();
}

void CFormSending::begin()
{
    if (!m_form)
        return;
    if (m_sending.hasSource(*m_form)) {
        m_sending.setSizedSource(m_form.get(), m_form->getLength());
        return;
    }
    m_form = nullptr;
    m_headers.removeLine("Content-Type");
}

} // namespace norla
