#include "norla/core/explain.h"
#include "norla/files/CFileDownload.h"
#include "norla/files/CFileQueue.h"

// Downloads many files into a folder, six at once, and tells every second how they fare together. Returns what went
// wrong, in sentences for a person; the other files are there.
kx::TArray<kx::String> downloadAll(const kx::TArray<kx::String>& urls, const norla::CNetRequest::Path& folder,
    const std::function<void(const norla::CFileQueueSummary&)>& report)
{
    kx::TArray<kx::String> problems; // onEnd is called for one file after the other
    const auto tell = [&problems](const norla::CFileTransfer& file) {
        if (const auto error = file.getError())
            problems.push_back(norla::explain(*error));
    };
    const auto pool = kx::newObj<norla::CTransferPool>(); // shared, so that connections are used again
    const auto queue = kx::newObj<norla::CFileQueue>(norla::CFileQueueOptions{.atOnce = 6, .onEnd = tell});
    for (const kx::String& url : urls) {
        const auto path = folder / norla::CFileDownload::suggestNameFor(url); // of the URL's path, and safe
        queue->add(kx::newObj<norla::CFileDownload>(url, path, norla::CFileDownloadOptions{.pool = pool}).get());
    }
    while (!queue->waitFor(kx::CTimeSpan::fromSeconds(1)))
        report(queue->getSummary());
    report(queue->getSummary());
    return problems;
}
