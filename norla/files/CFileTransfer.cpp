#include "norla/files/CFileTransfer.h"

#include "kx/base/CStdExceptionError.h"
#include "norla/files/CFileSignals.h"

namespace norla {

CFileTransfer::CFileTransfer()
    : m_signals(std::make_shared<CFileSignals>())
{
}

CFileTransfer::~CFileTransfer() = default;

void CFileTransfer::run()
{
    m_signals->begin();
    try {
        transfer();
        m_signals->succeed();
    } catch (const std::exception& error) {
        m_signals->fail(kx::CStdExceptionError::exceptionToError(error));
        throw;
    } catch (...) { // of callbacks, anything
        m_signals->fail(kx::newObj<kx::CError>("A callback has thrown something that is no std::exception."));
        throw;
    }
}

void CFileTransfer::cancel()
{
    m_signals->cancel();
}

void CFileTransfer::pause()
{
    m_signals->pause();
}

void CFileTransfer::resume()
{
    m_signals->resume();
}

FileState CFileTransfer::getState() const noexcept
{
    return m_signals->getState();
}

CFileProgress CFileTransfer::getProgress() const
{
    return m_signals->getProgress();
}

kx::P<kx::CError> CFileTransfer::getError() const
{
    return m_signals->getError();
}

} // namespace norla
