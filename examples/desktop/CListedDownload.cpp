#include "examples/desktop/CListedDownload.h"

#include <utility>

CListedDownload::CListedDownload(const kx::String& name, Make make)
    : m_name(name)
    , m_make(std::move(make))
    , m_file(m_make())
{
}

CDownloadStatus CListedDownload::status() const
{
    return {.state = m_file->getState(),
        .isPauseAsked = m_isPauseAsked,
        .progress = m_file->getProgress(),
        .error = m_file->getError()};
}

void CListedDownload::pause()
{
    if (!status().can(DownloadAction::Pause))
        return;
    m_isPauseAsked = true;
    m_file->pause();
}

void CListedDownload::resume()
{
    if (!status().can(DownloadAction::Resume))
        return;
    m_isPauseAsked = false;
    m_file->resume();
}

void CListedDownload::cancel()
{
    m_file->cancel();
}

bool CListedDownload::retry()
{
    if (!status().can(DownloadAction::Retry))
        return false;
    m_file = m_make();
    m_isPauseAsked = false;
    return true;
}
