#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CFileSink.h"

// Downloads several files at once; returns what went wrong, address by address.
kx::TMap<kx::String, kx::String> downloadMany(const kx::TMap<kx::String, norla::CNetRequest::Path>& paths)
{
    struct CDownload {
        kx::P<norla::CNetRequest> request;
        kx::P<norla::CFileSink> file;
    };
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>(); // a program has one of them
    thread->start();
    kx::TMap<kx::String, CDownload> downloads;
    for (const auto& [url, path] : paths) {
        CDownload& download = downloads[url];
        download.request = kx::newObj<norla::CNetRequest>();
        download.request->setSafeDefaults();
        download.request->setURL(url);
        download.file = kx::newObj<norla::CFileSink>(*download.request, path);
        download.request->setReceiveDataSink(download.file.get());
        thread->addRequest(download.request.get());
    }
    kx::TMap<kx::String, kx::String> problems;
    for (const auto& [url, download] : downloads) {
        while (!download.request->waitAsyncDone(1000) && thread->isAlive()) {
        }
        try {
            download.request->checkAsyncResult();
            download.file->finish();
        } catch (const kx::CError& error) {
            problems[url] = error.getMessage();
        }
    }
    return problems;
}
