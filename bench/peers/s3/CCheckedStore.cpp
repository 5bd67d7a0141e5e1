#include "bench/peers/s3/CCheckedStore.h"

#include "norla/core/CFileSource.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3StaticCredentials.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

kx::String text(const std::string& bytes)
{
    return kx::String::fromUTF8(bytes);
}

kx::P<norla::CS3Client> clientOf(const support::CCephServer& server)
{
    const auto credentials
        = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{.accessKeyId = text(server.accessKeyId()),
            .secretAccessKey = text(server.secretAccessKey()),
            .sessionToken = {},
            .expiry = {}});
    auto client = kx::newObj<norla::CS3Client>(norla::CS3Endpoint::ceph(text(server.host()), false), credentials.get());
    client->setMaxRetries(0);
    return client;
}

/// Compares what comes with a file.
class CComparingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    explicit CComparingSink(const std::filesystem::path& file)
        : m_file(file, std::ios::binary)
    {
    }

    int write(const unsigned char* data, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_block.resize(static_cast<size_t>(size));
        m_file.read(m_block.data(), size);
        if (!m_file || !std::equal(m_block.begin(), m_block.end(), reinterpret_cast<const char*>(data)))
            throw std::runtime_error("an object has other bytes than its file");
        return size;
    }

private:
    std::ifstream m_file;
    std::vector<char> m_block;
};

} // namespace

CCheckedStore::CCheckedStore(long long largeSize)
    : m_server({.storageBytes = 4 * largeSize + (2LL << 30)})
    , m_client(clientOf(m_server))
    , m_request(kx::newObj<norla::CNetRequest>())
    , m_objects(m_client.get(), m_request.get())
{
}

void CCheckedStore::put(const std::string& bucket, const std::string& key, const std::filesystem::path& file)
{
    const auto source = kx::newObj<norla::CFileSource>(norla::CNetRequest::Path::fromBytes(file.native()));
    m_objects.put(text(bucket), text(key), source.get(), source->getLength());
}

void CCheckedStore::requireObject(const std::string& bucket, const std::string& key, const std::filesystem::path& file)
{
    const auto sink = kx::newObj<CComparingSink>(file);
    const long long size = m_objects.get(text(bucket), text(key), sink.get()).size;
    if (size != static_cast<long long>(std::filesystem::file_size(file)))
        throw std::runtime_error(key + " has another size than its file");
    m_objects.remove(text(bucket), text(key));
    m_server.collectGarbage();
}

void CCheckedStore::requireCount(const std::string& bucket, int count, long long size)
{
    norla::CS3ObjectListing objects(m_client.get(), m_request.get(), text(bucket));
    int found = 0;
    for (; objects.next(); ++found) {
        if (objects.getCurrent()->size != size)
            throw std::runtime_error("an object in " + bucket + " has another size");
    }
    if (found != count)
        throw std::runtime_error(bucket + " has " + std::to_string(found) + " objects");
}

} // namespace bench
