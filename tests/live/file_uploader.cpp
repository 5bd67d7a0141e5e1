// Sends one file as a program of its own, which tests may kill: file_uploader URL PATH. One of that name is replaced.
#include "norla/core/explain.h"
#include "norla/files/CFileUpload.h"
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
        norla::CFileUploadOptions options;
        options.askSizeAfterwards = true;
        options.overwrite = true;
        options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(100);
        const auto prepare = [url = kx::String::fromUTF8(arguments[1])](
                                 norla::CNetRequest& request) { live::prepareFile(request, url); };
        kx::newObj<norla::CFileUpload>(prepare, norla::CNetRequest::Path::fromBytes(arguments[2]), options)->run();
    } catch (const kx::CError& error) {
        std::fprintf(stderr, "%s\n", norla::explain(error).toUTF8().c_str());
        return 1;
    }
    return 0;
}
