#include "kx/text/numbers.h"
#include "norla/core/explain.h"
#include "norla/files/CFileDownload.h"
#include "norla/files/CFileQueue.h"

// Fetches files into a folder, three at once, the others when their turn comes, and tells four times a second how they
// fare together. Returns what there is to say in the end, a line for each file that is not there and one for all.
kx::TArray<kx::String> fetchFiles(const kx::TArray<kx::String>& urls, const norla::CNetRequest::Path& folder,
    const std::function<void(const norla::CFileQueueSummary&)>& report)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    const auto queue = kx::newObj<norla::CFileQueue>(norla::CFileQueueOptions{.atOnce = 3});
    kx::TArray<kx::P<norla::CFileDownload>> files;
    for (const kx::String& url : urls) {
        norla::CFileDownloadOptions options;
        options.pool = pool; // one for all: connections are used again
        options.retries.attempts = 5;
        const auto path = folder / norla::CFileDownload::suggestNameFor(url);
        files.push_back(kx::newObj<norla::CFileDownload>(url, path, options));
        queue->add(files.back().get());
    }
    while (!queue->waitFor(kx::CTimeSpan::fromMilliseconds(250))) // any thread may call cancel(), pause() and resume()
        report(queue->getSummary());
    kx::TArray<kx::String> lines;
    for (const auto& file : files) {
        if (const auto error = file->getError())
            lines.push_back(norla::explain(*error));
    }
    const norla::CFileQueueSummary summary = queue->getSummary();
    lines.push_back(kx::toString(summary.succeeded) + " files, " + kx::toString(summary.doneBytes) + " bytes");
    return lines;
}
