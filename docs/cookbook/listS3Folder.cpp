#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3FolderEnum.h"

// The names of what is in a folder of a bucket, those of folders with a "/" at the end. The folder: "" for the
// uppermost, else "photos/" or "photos/2026/".
kx::TArray<kx::String> listS3Folder(norla::CS3Client& client, const kx::String& bucket, const kx::String& folder)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    kx::TArray<kx::String> names;
    norla::CS3FolderEnum entries(&client, request.get(), bucket, {.prefix = folder});
    while (entries.next()) {
        const kx::String name = entries.getCurrent()->key.substr(folder.size());
        if (!name.isEmpty()) // some programs store an object of the folder's own name
            names.push_back(name);
    }
    return names;
}
