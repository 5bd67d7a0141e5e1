#include "norla/core/CFileSink.h"
#include "norla/pool/CTransferPool.h"

// Downloads several files at once; returns what went wrong, address by address.
kx::TMap<kx::String, kx::String> downloadMany(const kx::TMap<kx::String, norla::CNetRequest::Path>& paths)
{
    struct CDownload {
        kx::P<norla::CFileSink> file;
        kx::P<norla::CTransfer> transfer;
    };
    const auto pool = kx::newObj<norla::CTransferPool>(); // a program has one of them
    kx::TMap<kx::String, CDownload> downloads;
    for (const auto& [url, path] : paths) {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setSafeDefaults();
        request->setURL(url);
        const auto file = kx::newObj<norla::CFileSink>(*request, path);
        request->setReceiveDataSink(file.get());
        downloads[url] = {file, pool->start(request.get())};
    }
    kx::TMap<kx::String, kx::String> problems;
    for (const auto& [url, download] : downloads) {
        download.transfer->wait();
        try {
            download.transfer->check();
            download.file->finish();
        } catch (const kx::CError& error) {
            problems[url] = error.getMessage();
        }
    }
    return problems;
}
