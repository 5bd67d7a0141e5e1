// Sends one file to a store by parts, one after the other, as a program of its own:
// s3_file_uploader HOST BUCKET KEY PATH PART-SIZE [BYTES]
// It kills itself once more than so many bytes are sent. The credentials are those of the environment.
#include "norla/core/explain.h"
#include "norla/files/CS3FileUpload.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3EnvironmentCredentials.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

int main(int count, char* arguments[])
{
    constexpr int usageExit = 2;
    constexpr int decimal = 10;
    constexpr int partSizeAt = 5;
    constexpr int bytesAt = 6;
    if (count <= partSizeAt) {
        std::fputs("Usage: s3_file_uploader HOST BUCKET KEY PATH PART-SIZE [BYTES]\n", stderr);
        return usageExit;
    }
    try {
        norla::CS3FileUploadOptions options;
        options.threshold = 0;
        options.partSize = std::strtoll(arguments[partSizeAt], nullptr, decimal);
        options.atOnce = 1;
        if (count > bytesAt) {
            options.onProgress
                = [most = std::strtoll(arguments[bytesAt], nullptr, decimal)](const norla::CFileProgress& progress) {
                      if (progress.done > most)
                          std::raise(SIGKILL);
                  };
        }
        const auto client
            = kx::newObj<norla::CS3Client>(norla::CS3Endpoint::ceph(kx::String::fromUTF8(arguments[1]), false),
                kx::newObj<norla::CS3EnvironmentCredentials>().get());
        kx::newObj<norla::CS3FileUpload>(client.get(), norla::CNetRequest::Path::fromBytes(arguments[4]),
            kx::String::fromUTF8(arguments[2]), kx::String::fromUTF8(arguments[3]), options)
            ->run();
    } catch (const kx::CError& error) {
        std::fprintf(stderr, "%s\n", norla::explain(error).toUTF8().c_str());
        return 1;
    }
    return 0;
}
