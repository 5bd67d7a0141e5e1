#pragma once

#include "examples/desktop/CDownloadStatus.h"

#include <functional>

/// A line of the list: one file, and as many tries to get it as a person asks for. Used by the window's thread.
class CListedDownload {
public:
    /// Makes a try that has not run.
    using Make = std::function<kx::P<norla::CFileTransfer>()>;

    CListedDownload(const kx::String& name, Make make);
    CListedDownload(const CListedDownload&) = delete;
    CListedDownload& operator=(const CListedDownload&) = delete;

    const kx::String& name() const { return m_name; }

    /// The last try.
    norla::CFileTransfer& file() const { return *m_file; }

    CDownloadStatus status() const;

    /// None of them waits, and what is not possible now does nothing.
    void pause();
    void resume();
    void cancel();

    /// Puts a new try, which somebody has yet to run, in the place of one that has ended otherwise than well.
    /// @return whether there is one
    bool retry();

private:
    const kx::String m_name;
    const Make m_make;
    kx::P<norla::CFileTransfer> m_file;
    bool m_isPauseAsked = false;
};
