// Works on the objects of an S3 store.
#include "examples/CFileSource.h"
#include "examples/CPartSink.h"
#include "examples/arguments.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ObjectEnum.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* usage = R"(Usage: s3 [--endpoint HOST[:PORT]] [--http] [--page COUNT] COMMAND
  put FILE BUCKET/KEY     stores a file
  get BUCKET/KEY FILE     fetches an object, piece by piece
  ls BUCKET[/PREFIX]      lists objects: size, time, key; COUNT of them with each request
  cp BUCKET/KEY NEWKEY    copies within the bucket
  rm BUCKET/KEY           removes an object
  stat BUCKET/KEY         shows size, type and time
The environment gives the credentials: S3_ACCESS_KEY_ID and S3_SECRET_ACCESS_KEY.
)";

class CUsageError : public std::exception {};

kx::String credential(const char* name)
{
    const char* const value = std::getenv(name);
    const kx::String variable = "The environment variable " + kx::String::fromLatin1(name);
    if (!value)
        throw kx::CError(variable + " is not set.");
    return textOf(value, variable);
}

/// BUCKET/KEY as it stands on the command line.
struct CPlace {
    explicit CPlace(const std::string& text)
        : bucket(textOf(text.substr(0, text.find('/')), "BUCKET"))
        , key(textOf(text.find('/') == std::string::npos ? "" : text.substr(text.find('/') + 1), "KEY"))
    {
    }

    kx::String bucket;
    kx::String key;
};

/// The Base64 form of the file's MD5. The file is read block by block.
kx::String md5Of(const std::string& file)
{
    constexpr size_t blockSize = 64 << 10;
    std::ifstream in(file, std::ios::binary);
    std::vector<char> block(blockSize);
    const auto digest = sela::CDigestType_MD5::createDigest();
    while (in.read(block.data(), blockSize) || in.gcount() > 0)
        digest->update(block.data(), static_cast<size_t>(in.gcount()));
    if (!in.eof())
        throw kx::CError("The file '" + kx::String::fromUTF8(file) + "' cannot be read.");
    digest->finish();
    return sela::base64Encode(digest->getBytes(), digest->getLength(), true, false);
}

class CCommands {
public:
    /// @param pageSize of a listing, -1 for the store's choice
    CCommands(kx::P<norla::CS3Client> client, int pageSize)
        : m_client(std::move(client))
        , m_pageSize(pageSize)
    {
    }

    /// The file is read twice: for its digest, and to be sent.
    void put(const std::string& file, const std::string& placeText)
    {
        const CPlace place(placeText);
        const kx::String md5 = md5Of(file);
        const auto source = kx::newObj<CFileSource>(file);
        m_client->putObject(*m_request, place.bucket, place.key, source.get(), source->getLength(), md5, "");
        std::cerr << source->getLength() << " bytes stored\n";
    }

    /// In pieces, each of which is tried again by itself when the store is busy.
    void get(const std::string& placeText, const std::string& file)
    {
        const CPlace place(placeText);
        const auto headers = m_client->getObjectHeaders(*m_request, place.bucket, place.key);
        const long long size = m_client->getObjectSize(*m_request, place.bucket, place.key);
        if (size < 0)
            throw kx::CError("The object '" + place.key + "' is gone.");
        const std::string partFile = file + ".part"; // the file has its name when it is complete
        std::ofstream out(partFile, std::ios::binary);
        const auto sink = kx::newObj<CPartSink>(*m_request, out, valueOf(headers, "etag"), size);
        while (sink->getPosition() < size) {
            const long long length = std::min(pieceSize, size - sink->getPosition());
            m_client->prepareGetObjectRequest(*m_request, place.bucket, place.key, sink->getPosition(), length);
            sink->expectUpTo(sink->getPosition() + length);
            m_request->setReceiveDataSink(sink.get());
            m_client->performRequest(*m_request);
            sink->requireEnd();
        }
        out.close();
        if (!out)
            throw kx::CError("The file '" + shownPath(partFile) + "' cannot be written.");
        std::filesystem::rename(partFile, file);
        std::cerr << size << " bytes fetched\n";
    }

    void list(const std::string& placeText)
    {
        const CPlace place(placeText);
        norla::CS3ObjectEnum objects(m_client.get(), m_request.get(), place.bucket, place.key, "", m_pageSize);
        while (objects.next()) {
            const auto object = objects.getCurrObject();
            std::cout << object->getSize() << '\t' << object->getLastModified() << '\t' << object->getKey() << '\n';
        }
    }

    void copy(const std::string& placeText, const std::string& newKey)
    {
        const CPlace place(placeText);
        m_client->copyObject(*m_request, place.bucket, place.key, textOf(newKey, "NEWKEY"));
    }

    void remove(const std::string& placeText)
    {
        const CPlace place(placeText);
        m_client->deleteObject(*m_request, place.bucket, place.key);
    }

    void stat(const std::string& placeText)
    {
        const CPlace place(placeText);
        const auto headers = m_client->getObjectHeaders(*m_request, place.bucket, place.key);
        for (const kx::String& name : kx::TArray<kx::String>{"content-length", "content-type", "last-modified", "etag"})
            std::cout << name << ": " << valueOf(headers, name) << '\n';
    }

private:
    static constexpr long long pieceSize = 8 << 20;

    static kx::String valueOf(const norla::CNetRequest::HeaderMap& headers, const kx::String& name)
    {
        const auto found = headers.find(name);
        return found == headers.end() ? kx::String() : found->second;
    }

    const kx::P<norla::CS3Client> m_client;
    const int m_pageSize;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

void execute(CCommands& commands, const std::vector<std::string>& words)
{
    const auto is = [&words](const char* name, size_t count) {
        return !words.empty() && words[0] == name && words.size() == count + 1;
    };
    if (is("put", 2))
        commands.put(words[1], words[2]);
    else if (is("get", 2))
        commands.get(words[1], words[2]);
    else if (is("ls", 1))
        commands.list(words[1]);
    else if (is("cp", 2))
        commands.copy(words[1], words[2]);
    else if (is("rm", 1))
        commands.remove(words[1]);
    else if (is("stat", 1))
        commands.stat(words[1]);
    else
        throw CUsageError();
}

struct COptions {
    kx::String endpoint = "s3.amazonaws.com";
    bool useSSL = true;
    int pageSize = -1;
};

/// Takes the options from the front of the words.
COptions takeOptions(std::vector<std::string>& words)
{
    COptions options;
    while (!words.empty() && words[0].starts_with("--")) {
        const bool hasValue = words[0] != "--http";
        if (hasValue && words.size() < 2)
            throw CUsageError();
        if (words[0] == "--http")
            options.useSSL = false;
        else if (words[0] == "--endpoint")
            options.endpoint = textOf(words[1], "The value of --endpoint");
        else if (words[0] == "--page")
            options.pageSize = static_cast<int>(kx::parseInt64(textOf(words[1], "The value of --page"), false));
        else
            throw CUsageError();
        words.erase(words.begin(), words.begin() + (hasValue ? 2 : 1));
    }
    return options;
}

void run(std::vector<std::string> words)
{
    const COptions options = takeOptions(words);
    if (words.empty())
        throw CUsageError();
    const kx::String accessKeyId = credential("S3_ACCESS_KEY_ID");
    const kx::String secret = credential("S3_SECRET_ACCESS_KEY");
    const auto client = kx::newObj<norla::CS3Client>(accessKeyId, secret, options.useSSL, options.endpoint);
    client->setMaxRetries(5);
    CCommands commands(client, options.pageSize);
    execute(commands, words);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        run({argv + 1, argv + argc});
        return 0;
    } catch (const CUsageError&) {
        std::cerr << usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "s3: " << error.what() << '\n';
        return 1;
    }
}
