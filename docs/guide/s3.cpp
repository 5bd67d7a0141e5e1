#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ObjectEnum.h"

// Stores a note; returns the names of all notes. The client: kx::newObj<norla::CS3Client>(keyId, secret, true).
kx::TArray<kx::String> storeNote(norla::CS3Client& client, const kx::String& bucket, const std::string& note)
{
    client.setSafeDefaults(); // for all that follows
    const auto request = kx::newObj<norla::CNetRequest>();
    client.putObject(*request, bucket, "notes/today.txt", note.data(), static_cast<int>(note.size()), "text/plain");
    kx::TArray<kx::String> names;
    norla::CS3ObjectEnum notes(&client, request.get(), bucket, "notes/", "", -1);
    while (notes.next())
        names.push_back(notes.getCurrObject()->getKey());
    return names;
}

// The store's own word for what is wrong, such as "NoSuchKey"; empty when the object can be fetched.
kx::String problemWith(norla::CS3Client& client, const kx::String& bucket, const kx::String& name)
{
    try {
        client.getObject(*kx::newObj<norla::CNetRequest>(), bucket, name, 0, -1);
        return "";
    } catch (const norla::CS3Error& error) {
        return error.getS3Code();
    }
}
