#include "norla/files/CFileTransfer.h"

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
        m_signals->end(FileState::Succeeded);
    } catch (...) { // of callbacks, anything
        m_signals->end(m_signals->isCancelled() ? FileState::Cancelled : FileState::Failed);
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

} // namespace norla
