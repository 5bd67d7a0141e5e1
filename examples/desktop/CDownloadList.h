#pragma once

#include "examples/desktop/CListedDownload.h"
#include "examples/text.h"
#include "norla/files/CFileQueue.h"
#include "norla/pool/CTransferPool.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// What the list is about, and who is told of it. Fields are named in the order in which they stand here.
struct CDownloadListSettings {
    Path folder;         ///< where the files come to
    int atOnce = 4;      ///< files, 1 to 256; the others wait
    Path authority = {}; ///< trusted alone; empty: those that the system trusts

    /// Runs what comes from other threads on the list's. Not null.
    kx::P<norla::IExecutor> executor;

    /// Called on the list's thread when the download of this number has moved on or has ended.
    std::function<void(size_t number)> onChange;
};

/// The downloads of a window: one pool and one queue for all. Used by one thread, which nothing here ever blocks; the
/// destructor alone waits, until what runs has been cancelled.
class CDownloadList {
public:
    /// @throws as norla::CFileQueue and norla::CTransferPool
    explicit CDownloadList(const CDownloadListSettings& settings);
    CDownloadList(const CDownloadList&) = delete;
    CDownloadList& operator=(const CDownloadList&) = delete;

    /// @param typed a URL; without a scheme it is meant for https
    /// @return its number: they count from 0
    /// @throws as CAddress for what is no URL
    size_t add(const kx::String& typed);

    size_t size() const { return m_downloads.size(); }
    const CListedDownload& at(size_t number) const { return *m_downloads.at(number); }

    /// What is not possible now does nothing.
    void act(DownloadAction action, size_t number);

    void cancelAll() { m_queue->cancel(); }

    bool hasEnded() const;

    /// How they fare together, in words.
    kx::String summary() const;

private:
    kx::String freeNameFor(const kx::String& url);
    void tellEnd(const norla::CFileTransfer& file) const;

    CDownloadListSettings m_settings;
    kx::P<norla::CTransferPool> m_pool;
    std::set<std::string> m_names;
    std::vector<std::unique_ptr<CListedDownload>> m_downloads;

    /// What waits in the executor may be run behind the list's end, and finds it gone.
    const std::shared_ptr<CDownloadList*> m_self;

    /// The last member: nothing of its files runs when the others go.
    kx::P<norla::CFileQueue> m_queue;
};
