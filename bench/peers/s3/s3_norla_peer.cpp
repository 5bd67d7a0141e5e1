// The library: one large object, or many small ones, eight at once, from files and into files. The environment names
// the store.
#include "bench/peers/s3/CObjectPool.h"
#include "bench/peers/s3/s3Work.h"
#include "norla/s3/CS3BatchDelete.h"
#include "norla/s3/CS3EnvironmentCredentials.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <future>
#include <map>

namespace {

using norla::CNetRequest;
using norla::CS3Client;

kx::String text(const std::string& bytes)
{
    return kx::String::fromUTF8(bytes);
}

kx::P<CS3Client> openStore()
{
    const auto credentials = kx::newObj<norla::CS3EnvironmentCredentials>();
    const auto endpoint = norla::CS3Endpoint::ceph(text(bench::variable("S3_ENDPOINT")), false);
    auto client = kx::newObj<CS3Client>(endpoint, credentials.get());
    client->setMaxRetries(0);
    return client;
}

/// A bucket, for one thread.
class CBucket {
public:
    explicit CBucket(const std::string& name)
        : m_name(text(name))
    {
    }

    CS3Client& client() { return *m_client; }
    const kx::String& name() const { return m_name; }

    void upload(const std::string& file, const std::string& key)
    {
        norla::CS3ParallelUploadOptions options;
        options.partSize = bench::s3PartSize;
        options.atOnce = bench::s3PartsAtOnce;
        kx::newObj<norla::CS3ParallelUpload>(m_client.get(), m_request.get(), options)
            ->upload(CNetRequest::Path::fromBytes(file), m_name, text(key));
    }

    void get(const std::string& key, const std::string& file, bool verify)
    {
        const auto sink = kx::newObj<norla::CFileSink>(*m_request, CNetRequest::Path::fromBytes(file));
        norla::CS3GetOptions options;
        options.verify = verify;
        m_objects.get(m_name, text(key), sink.get(), options);
        sink->finish();
    }

    void put(const std::string& key, const std::string& bytes) { m_objects.put(m_name, text(key), bytes); }

    void print()
    {
        forEach([](const norla::CS3ListedObject& object) {
            std::printf("%lld %s\n", object.size, object.key.toUTF8().c_str());
        });
    }

    bench::Names names()
    {
        bench::Names names;
        forEach([&names](const norla::CS3ListedObject& object) { names.push_back(object.key.toUTF8()); });
        return names;
    }

    void clear()
    {
        const auto removal = kx::newObj<norla::CS3BatchDelete>(m_client.get(), m_request.get(), m_name);
        norla::CS3ObjectListing objects(m_client.get(), m_request.get(), m_name);
        while (objects.next())
            removal->add(objects.getCurrent()->key);
        removal->finish();
        if (!removal->getFailures().empty())
            throw std::runtime_error("not all objects are removed");
    }

private:
    template <typename TAction>
    void forEach(TAction action)
    {
        norla::CS3ObjectListing objects(m_client.get(), m_request.get(), m_name);
        while (objects.next())
            action(*objects.getCurrent());
    }

    const kx::String m_name;
    const kx::P<CS3Client> m_client = openStore();
    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    norla::CS3Objects m_objects{m_client.get(), m_request.get()};
};

/// Threads that block.
template <typename TAction>
void inThreads(const std::string& bucketName, const bench::Names& names, TAction action)
{
    std::atomic<size_t> next{0};
    std::vector<std::future<void>> threads;
    for (int i = 0; i < bench::s3ObjectsAtOnce; ++i) {
        threads.push_back(std::async(std::launch::async, [&] {
            CBucket bucket(bucketName);
            for (size_t at = next++; at < names.size(); at = next++)
                action(bucket, names[at]);
        }));
    }
    for (auto& thread : threads)
        thread.get();
}

using Words = std::vector<std::string>; // bucket and whatever comes behind it

void putInThreads(const Words& words)
{
    const std::string folder = words.at(1) + '/';
    inThreads(words[0], bench::namesIn(folder),
        [&](CBucket& bucket, const std::string& name) { bucket.put(name, bench::bytesOf(folder + name)); });
}

void getInThreads(const Words& words)
{
    const std::string folder = words.at(1) + '/';
    inThreads(words[0], CBucket(words[0]).names(),
        [&](CBucket& bucket, const std::string& name) { bucket.get(name, folder + name, true); });
}

void putByPool(const Words& words)
{
    CBucket bucket(words[0]);
    bench::CObjectPool(bucket.client(), bucket.name(), words.at(1)).put(bench::namesIn(words[1]));
}

void getByPool(const Words& words)
{
    CBucket bucket(words[0]);
    bench::CObjectPool(bucket.client(), bucket.name(), words.at(1)).get(bucket.names());
}

const std::map<std::string, std::function<void(const Words&)>> operations{
    {"up", [](const Words& words) { CBucket(words[0]).upload(words.at(1), words.at(2)); }},
    {"down", [](const Words& words) { CBucket(words[0]).get(words.at(1), words.at(2), true); }},
    {"down-unchecked", [](const Words& words) { CBucket(words[0]).get(words.at(1), words.at(2), false); }},
    {"put-threads", putInThreads},
    {"get-threads", getInThreads},
    {"put", putByPool},
    {"get", getByPool},
    {"list", [](const Words& words) { CBucket(words[0]).print(); }},
    {"delete", [](const Words& words) { CBucket(words[0]).clear(); }},
};

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count < 3)
            throw std::runtime_error("operation and bucket are missing");
        operations.at(arguments[1])(Words(arguments + 2, arguments + count));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "s3_norla_peer: %s\n", error.what());
        return 1;
    }
}
