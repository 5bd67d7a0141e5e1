// Works on the objects of an S3 store.
#include "examples/CPartRemoval.h"
#include "examples/CPartSink.h"
#include "examples/CSentFile.h"
#include "examples/TCommand.h"
#include "examples/credentials.h"
#include "examples/localFiles.h"
#include "examples/naming.h"
#include "examples/runProgram.h"
#include "examples/terminal.h"
#include "kx/files/CInputFile.h"
#include "kx/files/COutputFile.h"
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ObjectEnum.h"
#include "norla/s3/CS3SharedCredentialsFile.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

/// BUCKET/KEY as it stands on the command line.
struct CPlace {
    explicit CPlace(const std::string& text)
        : bucket(textOf(text.substr(0, text.find('/')), "BUCKET"))
        , key(textOf(text.find('/') == std::string::npos ? "" : text.substr(text.find('/') + 1), "KEY"))
    {
    }

    kx::String name() const { return key.isEmpty() ? bucket : bucket + "/" + key; }

    kx::String bucket;
    kx::String key;
};

/// The Base64 form of the file's MD5. The file is read block by block.
kx::String md5Of(const std::string& file)
{
    constexpr int blockSize = 64 << 10;
    kx::CInputFile in(Path::fromBytes(file));
    std::vector<unsigned char> block(blockSize);
    const auto digest = sela::CDigestType_MD5::createDigest();
    while (const int count = in.read(block.data(), blockSize))
        digest->update(block.data(), static_cast<size_t>(count));
    digest->finish();
    return sela::base64Encode(digest->getBytes(), digest->getLength(), true, false);
}

using Words = std::vector<std::string>;

class CCommands {
public:
    /// @param pageSize of a listing, -1 for the store's choice
    /// @param lifetime of presigned URLs
    CCommands(kx::P<norla::CS3Client> client, int pageSize, kx::CTimeSpan lifetime)
        : m_client(std::move(client))
        , m_pageSize(pageSize)
        , m_lifetime(lifetime)
    {
    }

    void makeBucket(const Words& words)
    {
        const kx::String bucket = textOf(words[0], "BUCKET");
        naming(bucket, m_request.get(), [&] { norla::CS3Buckets(m_client.get(), m_request.get()).create(bucket); });
    }

    void removeBucket(const Words& words)
    {
        const kx::String bucket = textOf(words[0], "BUCKET");
        naming(bucket, m_request.get(), [&] { norla::CS3Buckets(m_client.get(), m_request.get()).remove(bucket); });
    }

    /// The file is read twice: for its digest, and to be sent.
    void put(const Words& words)
    {
        const CPlace place(words[1]);
        const auto source = kx::newObj<CSentFile>(words[0]);
        const kx::String md5 = withLocalFile([&] { return md5Of(words[0]); });
        naming(place.name(), m_request.get(), [&] {
            m_client->putObject(*m_request, place.bucket, place.key, source.get(), source->getLength(), md5, "");
        });
        std::cerr << source->getLength() << " bytes stored\n";
    }

    /// In pieces, each of which is tried again by itself when the store is busy.
    void get(const Words& words)
    {
        const CPlace place(words[0]);
        long long size = 0;
        naming(place.name(), m_request.get(), [&] { size = getTo(words[1], place); });
        std::cerr << size << " bytes fetched\n";
    }

    void list(const Words& words)
    {
        const CPlace place(words[0]);
        naming(place.name(), m_request.get(), [&] {
            norla::CS3ObjectEnum objects(m_client.get(), m_request.get(), place.bucket, place.key, "", m_pageSize);
            while (objects.next()) {
                const auto object = objects.getCurrObject();
                print(std::to_string(object->getSize()) + '\t' + shownOnOutput(object->getLastModified()) + '\t'
                    + shownOnOutput(object->getKey()) + '\n');
            }
        });
    }

    void copy(const Words& words)
    {
        const CPlace place(words[0]);
        const kx::String newKey = textOf(words[1], "NEWKEY");
        naming(place.name() + " to " + newKey, m_request.get(),
            [&] { m_client->copyObject(*m_request, place.bucket, place.key, newKey); });
    }

    void move(const Words& words)
    {
        const CPlace place(words[0]);
        if (place.key == textOf(words[1], "NEWKEY"))
            throw usageError("the object has that key already"); // it would be removed
        copy(words);
        remove({words[0]});
    }

    /// A URL for whoever has no key of the store.
    void presign(const Words& words)
    {
        const CPlace place(words[0]);
        naming(place.name(), m_request.get(), [&] {
            print(m_client->presignObjectURL(*m_request, "GET", place.bucket, place.key, m_lifetime).toUTF8() + '\n');
        });
    }

    void remove(const Words& words)
    {
        const CPlace place(words[0]);
        naming(place.name(), m_request.get(), [&] { m_client->deleteObject(*m_request, place.bucket, place.key); });
    }

    void stat(const Words& words)
    {
        const CPlace place(words[0]);
        norla::CNetRequest::HeaderMap headers;
        naming(place.name(), m_request.get(),
            [&] { headers = m_client->getObjectHeaders(*m_request, place.bucket, place.key); });
        for (const kx::String& name : kx::TArray<kx::String>{"content-length", "content-type", "last-modified", "etag"})
            print(name.toUTF8() + ": " + shownOnOutput(valueOf(headers, name)) + '\n');
    }

private:
    static constexpr long long pieceSize = 8 << 20;

    static kx::String valueOf(const norla::CNetRequest::HeaderMap& headers, const kx::String& name)
    {
        const auto found = headers.find(name);
        return found == headers.end() ? kx::String() : found->second;
    }

    /// @return the size of the object
    long long getTo(const std::string& name, const CPlace& place)
    {
        const auto headers = m_client->getObjectHeaders(*m_request, place.bucket, place.key);
        const long long size = m_client->getObjectSize(*m_request, place.bucket, place.key);
        if (size < 0)
            throw kx::CError("The object is gone.");
        const auto file = withLocalFile([&] { return kx::newObj<kx::COutputFile>(Path::fromBytes(name)); });
        const CPartRemoval removal(file->getPartPath());
        const auto sink = kx::newObj<CPartSink>(*m_request, file.get(), valueOf(headers, "etag"), size);
        while (sink->getPosition() < size) {
            const long long length = std::min(pieceSize, size - sink->getPosition());
            m_client->prepareGetObjectRequest(*m_request, place.bucket, place.key, sink->getPosition(), length);
            sink->expectUpTo(sink->getPosition() + length);
            m_request->setReceiveDataSink(sink.get());
            m_client->performRequest(*m_request);
            sink->requireEnd();
        }
        withLocalFile([&] { file->finish(); });
        return size;
    }

    const kx::P<norla::CS3Client> m_client;
    const int m_pageSize;
    const kx::CTimeSpan m_lifetime;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

const std::vector<TCommand<CCommands>> commands{
    {"put", {"FILE", "BUCKET/KEY"}, "stores a file", &CCommands::put},
    {"get", {"BUCKET/KEY", "FILE"}, "fetches an object, piece by piece", &CCommands::get},
    {"ls", {"BUCKET[/PREFIX]"}, "lists objects: size, time, key", &CCommands::list},
    {"cp", {"BUCKET/KEY", "NEWKEY"}, "copies within the bucket", &CCommands::copy},
    {"mv", {"BUCKET/KEY", "NEWKEY"}, "gives an object another key", &CCommands::move},
    {"rm", {"BUCKET/KEY"}, "removes an object", &CCommands::remove},
    {"stat", {"BUCKET/KEY"}, "shows size, type and time", &CCommands::stat},
    {"presign", {"BUCKET/KEY"}, "prints a URL by which anybody may fetch it", &CCommands::presign},
    {"mb", {"BUCKET"}, "makes a bucket", &CCommands::makeBucket},
    {"rb", {"BUCKET"}, "removes an empty bucket", &CCommands::removeBucket},
};

const CProgram program{
    .name = "s3",
    .operands = {"COMMAND..."},
    .purpose = "Works on the objects of an S3 store. The commands:\n" + helpOf(commands),
    .options = {
        {"--endpoint", "HOST[:PORT]", "the store (default: Amazon's, of the region)"},
        {"--region", "NAME", "where the buckets are (default: us-east-1)"},
        {"--profile", "NAME", "the credentials of that name in ~/.aws/credentials"},
        {"--http", "", "without TLS"},
        {"--expires", "SECONDS", "life of presigned URLs, 604800 at most (default: 3600)"},
        {"--page", "COUNT", "list so many objects with each request, 1 to 1000"},
    },
    .notes = R"(Without --profile the environment gives the credentials: S3_ACCESS_KEY_ID and
S3_SECRET_ACCESS_KEY. What is not set there is asked for at the terminal.
)",
};

kx::P<norla::IS3Credentials> credentialsOf(const CArguments& arguments)
{
    if (arguments.has("--profile"))
        return kx::newObj<norla::CS3SharedCredentialsFile>(Path(), arguments.text("--profile"));
    return kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = secretOf("S3_ACCESS_KEY_ID", "Access key id"),
            .secretAccessKey = secretOf("S3_SECRET_ACCESS_KEY", "Secret access key"),
            .sessionToken = {},
            .expiry = {}});
}

kx::P<norla::CS3Client> clientOf(const CArguments& arguments)
{
    const kx::String region = arguments.has("--region") ? arguments.text("--region") : "us-east-1";
    auto endpoint = norla::CS3Endpoint::aws(region);
    if (arguments.has("--endpoint"))
        endpoint = {.host = arguments.text("--endpoint"), .region = region};
    endpoint.useTLS = !arguments.has("--http");
    auto client = kx::newObj<norla::CS3Client>(endpoint, credentialsOf(arguments).get());
    client->setSafeDefaults();
    client->setMaxRetries(5);
    return client;
}

int s3(const CArguments& arguments)
{
    const Words& words = arguments.operands();
    const auto& command = commandOf(commands, words);
    const bool hasPage = arguments.has("--page");
    const long long pageSize = hasPage ? numberOf(arguments.text("--page"), "the value of --page", 1, 1000) : -1;
    constexpr long long week = 7LL * 24 * 3600;
    const bool hasExpiry = arguments.has("--expires");
    const long long seconds
        = hasExpiry ? numberOf(arguments.text("--expires"), "the value of --expires", 1, week) : 3600;
    CCommands work(clientOf(arguments), static_cast<int>(pageSize), kx::CTimeSpan::fromSeconds(seconds));
    (work.*command.run)({words.begin() + 1, words.end()});
    return exitDone;
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram(program, argc, argv, s3);
}
