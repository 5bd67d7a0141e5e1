#include "examples/desktop/CDownloadList.h"

#include "examples/CAddress.h"
#include "examples/amounts.h"
#include "norla/files/CFileDownload.h"

#include <algorithm>

namespace {

/// "file.zip" becomes "file (2).zip".
std::string numbered(const std::string& name, int number)
{
    const size_t point = name.rfind('.');
    const std::string end = point == std::string::npos ? "" : name.substr(point);
    return name.substr(0, name.size() - end.size()) + " (" + std::to_string(number) + ")" + end;
}

CAddress addressOf(const kx::String& typed)
{
    const std::string text = typed.trim().toUTF8();
    return CAddress(text.find("://") == std::string::npos ? "https://" + text : text);
}

} // namespace

CDownloadList::CDownloadList(const CDownloadListSettings& settings)
    : m_settings(settings)
    , m_pool(kx::newObj<norla::CTransferPool>())
    , m_self(std::make_shared<CDownloadList*>(this))
{
    norla::CFileQueueOptions options{.atOnce = settings.atOnce, .executor = settings.executor};
    options.onEnd = [self = std::weak_ptr(m_self)](norla::CFileTransfer& file) {
        if (const auto list = self.lock())
            (*list)->tellEnd(file);
    };
    m_queue = kx::newObj<norla::CFileQueue>(options);
}

size_t CDownloadList::add(const kx::String& typed)
{
    const CAddress address = addressOf(typed);
    const kx::String name = freeNameFor(address.url());
    norla::CFileDownloadOptions options;
    options.retries.attempts = 3;
    options.pool = m_pool;
    options.executor = m_settings.executor;
    const size_t number = m_downloads.size();
    options.onProgress = [self = std::weak_ptr(m_self), number](const norla::CFileProgress&) {
        if (const auto list = self.lock())
            (*list)->m_settings.onChange(number);
    };
    const auto prepare = [address, authority = m_settings.authority](norla::CNetRequest& request) {
        address.applyTo(request);
        if (!authority.isEmpty())
            request.setRootCertBundlePath(authority);
    };
    const Path path = m_settings.folder / name;
    m_downloads.push_back(std::make_unique<CListedDownload>(
        name, [=] { return kx::P<norla::CFileTransfer>(kx::newObj<norla::CFileDownload>(prepare, path, options)); }));
    m_queue->add(&m_downloads.back()->file());
    return number;
}

void CDownloadList::act(DownloadAction action, size_t number)
{
    CListedDownload& download = *m_downloads.at(number);
    switch (action) {
    case DownloadAction::Pause:
        download.pause();
        break;
    case DownloadAction::Resume:
        download.resume();
        break;
    case DownloadAction::Cancel:
        download.cancel();
        break;
    case DownloadAction::Retry:
        if (download.retry())
            m_queue->add(&download.file());
        break;
    }
    m_settings.onChange(number);
}

bool CDownloadList::hasEnded() const
{
    return std::all_of(
        m_downloads.begin(), m_downloads.end(), [](const auto& each) { return each->status().hasEnded(); });
}

kx::String CDownloadList::summary() const
{
    const auto count = [this](norla::FileState state) {
        return std::count_if(m_downloads.begin(), m_downloads.end(),
            [state](const auto& each) { return each->file().getState() == state; });
    };
    const auto failed = count(norla::FileState::Failed);
    kx::String text = kx::toString(static_cast<long long>(count(norla::FileState::Succeeded))) + " of "
        + kx::toString(static_cast<long long>(m_downloads.size())) + " are there";
    if (failed > 0)
        text += ", " + kx::toString(static_cast<long long>(failed)) + " failed";
    const norla::CFileQueueSummary all = m_queue->getSummary();
    if (all.bytesPerSecond > 0)
        text += ", " + kx::String::fromLatin1(shownSize(all.bytesPerSecond)) + "/s";
    if (all.secondsLeft)
        text += ", " + kx::String::fromLatin1(shownTime(*all.secondsLeft)) + " left";
    return text;
}

/// Two URLs with one name are two files. What the folder has already the download itself finds, on its own thread.
kx::String CDownloadList::freeNameFor(const kx::String& url)
{
    const std::string suggested = norla::CFileDownload::suggestNameFor(url).toUTF8();
    const std::string wanted = suggested.empty() ? "download" : suggested;
    std::string name = wanted;
    for (int number = 2; !m_names.insert(name).second; ++number)
        name = numbered(wanted, number);
    return kx::String::fromUTF8(name);
}

void CDownloadList::tellEnd(const norla::CFileTransfer& file) const
{
    const auto place = std::find_if(
        m_downloads.begin(), m_downloads.end(), [&file](const auto& each) { return &each->file() == &file; });
    if (place != m_downloads.end())
        m_settings.onChange(static_cast<size_t>(place - m_downloads.begin()));
}
