// Sends one file as a program of its own, which tests may kill: file_uploader URL PATH. One of that name is replaced.
// To a store (s3://HOST/BUCKET/KEY) it goes by parts.
#include "norla/core/explain.h"
#include "norla/files/CFileUpload.h"
#include "norla/files/CS3FileUpload.h"
#include "tests/live/fileProgram.h"

#include <cstdio>

int main(int count, char* arguments[])
{
    constexpr int usageExit = 2;
    if (count < 3) {
        std::fputs("Usage: file_uploader URL PATH\n", stderr);
        return usageExit;
    }
    try {
        const auto path = norla::CNetRequest::Path::fromBytes(arguments[2]);
        norla::CRetryPolicy retries;
        retries.firstPause = kx::CTimeSpan::fromMilliseconds(100);
        if (const auto object = live::storeURLOf(arguments[1])) {
            norla::CS3FileUploadOptions options;
            options.threshold = 0;
            options.partSize = 5LL << 20;
            options.overwrite = true;
            options.retries = retries;
            const auto store = live::storeOf(*object);
            kx::newObj<norla::CS3FileUpload>(store.get(), path, object->bucket, object->key, options)->run();
            return 0;
        }
        norla::CFileUploadOptions options;
        options.askSizeAfterwards = true;
        options.overwrite = true;
        options.retries = retries;
        const auto prepare = [url = kx::String::fromUTF8(arguments[1])](
                                 norla::CNetRequest& request) { live::prepareFile(request, url); };
        kx::newObj<norla::CFileUpload>(prepare, path, options)->run();
    } catch (const kx::CError& error) {
        std::fprintf(stderr, "%s\n", norla::explain(error).toUTF8().c_str());
        return 1;
    }
    return 0;
}
