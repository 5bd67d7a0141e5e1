// Fetches one file, or object of a store (s3://HOST/BUCKET/KEY), as a program of its own, which tests may kill:
// file_downloader URL PATH [BYTES-A-SECOND]
#include "norla/core/explain.h"
#include "norla/files/CFileDownload.h"
#include "norla/files/CS3FileDownload.h"
#include "tests/live/fileProgram.h"

#include <cstdio>
#include <cstdlib>

int main(int count, char* arguments[])
{
    constexpr int usageExit = 2;
    constexpr int decimal = 10;
    if (count < 3) {
        std::fputs("Usage: file_downloader URL PATH [BYTES-A-SECOND]\n", stderr);
        return usageExit;
    }
    try {
        norla::CFileDownloadOptions options;
        options.overwrite = true; // one that was killed just behind the end of its work is started again
        options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(100);
        if (count > 3)
            options.speedLimit = std::strtoll(arguments[3], nullptr, decimal);
        const auto path = norla::CNetRequest::Path::fromBytes(arguments[2]);
        if (const auto object = live::storeURLOf(arguments[1])) {
            const auto store = live::storeOf(*object);
            kx::newObj<norla::CS3FileDownload>(
                store.get(), object->bucket, object->key, path, norla::CS3FileDownloadOptions{.file = options})
                ->run();
            return 0;
        }
        const auto prepare = [url = kx::String::fromUTF8(arguments[1])](
                                 norla::CNetRequest& request) { live::prepareFile(request, url); };
        kx::newObj<norla::CFileDownload>(prepare, path, options)->run();
    } catch (const kx::CError& error) {
        std::fprintf(stderr, "%s\n", norla::explain(error).toUTF8().c_str());
        return 1;
    }
    return 0;
}
