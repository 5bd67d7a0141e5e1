// The transfer core beside bare libcurl.
#include "bench/CLoopbackServer.h"
#include "bench/bareCurl.h"
#include "bench/compare.h"
#include "bench/cores.h"
#include "kx/streams/IInStream.h"
#include "norla/core/CNetRequest.h"

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <memory>
#include <vector>

namespace {

using bench::check;
using bench::Easy;

constexpr long long largeSize = 64LL << 20;
constexpr int smallCount = 2000;
constexpr int idleCount = 1000;

/// Touches nothing but the size, on both sides.
class CCountingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_total += size;
        return size;
    }

    long long m_total = 0;
};

size_t countBytes(char*, size_t size, size_t count, void* total)
{
    *static_cast<long long*>(total) += static_cast<long long>(size * count);
    return size * count;
}

/// Gives bytes without making any.
class CEndlessSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    int read(unsigned char*, int size, const norla::CNetRequest::HeaderMap&) override
    {
        const auto count = static_cast<int>(std::min<long long>(size, largeSize - m_position));
        m_position += count;
        return count;
    }
    long long getLength() override { return largeSize; }
    void seek(long long position) override { m_position = position; }
    long long getPosition() override { return m_position; }

private:
    long long m_position = 0;
};

size_t giveBytes(char*, size_t size, size_t count, void* left)
{
    auto& rest = *static_cast<long long*>(left);
    const auto given = std::min<long long>(static_cast<long long>(size * count), rest);
    rest -= given;
    return static_cast<size_t>(given);
}

// Both sides of the two comparisons of bodies connect anew in each round: connections differ for as long as they live.
bool compareDownloads(const bench::CLoopbackServer& server)
{
    const std::string url = server.url("/down");
    const Easy easy(curl_easy_init());
    long long total = 0;
    check(curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str()));
    check(curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, &countBytes));
    check(curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &total));
    check(curl_easy_setopt(easy.get(), CURLOPT_FRESH_CONNECT, 1L));
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(kx::String::fromUTF8(url));
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request->setReceiveDataSink(kx::newObj<CCountingSink>().get());
    return bench::compare({"download of 64 MiB into a sink", 1.02, 101,
        [&easy] { check(curl_easy_perform(easy.get())); }, [&request] { request->perform(); }});
}

bool compareUploads(const bench::CLoopbackServer& server)
{
    const std::string url = server.url("/up");
    const Easy easy(curl_easy_init());
    long long left = 0;
    check(curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str()));
    check(curl_easy_setopt(easy.get(), CURLOPT_UPLOAD, 1L));
    check(curl_easy_setopt(easy.get(), CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(largeSize)));
    check(curl_easy_setopt(easy.get(), CURLOPT_READFUNCTION, &giveBytes));
    check(curl_easy_setopt(easy.get(), CURLOPT_READDATA, &left));
    check(curl_easy_setopt(easy.get(), CURLOPT_EXPECT_100_TIMEOUT_MS, 1L));
    check(curl_easy_setopt(easy.get(), CURLOPT_FRESH_CONNECT, 1L));
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(kx::String::fromUTF8(url));
    request->setSendDataSource(kx::newObj<CEndlessSource>().get());
    request->setSendDataSize(largeSize);
    request->setHTTPMethod("PUT");
    request->setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 1);
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    const auto bare = [&easy, &left] {
        left = largeSize;
        check(curl_easy_perform(easy.get()));
    };
    return bench::compare({"upload of 64 MiB from a source", 1.02, 101, bare, [&request] { request->perform(); }});
}

/// @param keepsLines whether bare libcurl keeps the lines of the answer too, beside body and header map
bool compareSmallGets(const bench::CLoopbackServer& server, const char* name, bool keepsLines)
{
    const std::string url = server.url("/small");
    const Easy easy(curl_easy_init());
    bench::CBareResponse response(keepsLines);
    check(curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str()));
    response.receiveFrom(easy.get());
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(kx::String::fromUTF8(url));
    const auto bare = [&easy, &response] {
        for (int i = 0; i < smallCount; ++i) {
            response.clear();
            check(curl_easy_perform(easy.get()));
            long status = 0;
            check(curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status));
        }
    };
    const auto norla = [&request] {
        for (int i = 0; i < smallCount; ++i)
            request->perform();
    };
    return bench::compare({name, 1.10, 25, bare, norla});
}

bool compareConstruction()
{
    const auto bare = [] {
        for (int i = 0; i < smallCount; ++i)
            Easy{curl_easy_init()};
    };
    const auto norla = [] {
        for (int i = 0; i < smallCount; ++i)
            kx::newObj<norla::CNetRequest>();
    };
    return bench::compare({"2000 handles or requests made and freed", 3.00, 25, bare, norla});
}

template <typename TMake>
double bytesEach(TMake make)
{
    std::vector<decltype(make())> objects;
    objects.reserve(idleCount);
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < idleCount; ++i)
        objects.push_back(make());
    return static_cast<double>(mallinfo2().uordblks - before) / idleCount;
}

void printMemory()
{
    const double bare = bytesEach([] { return Easy(curl_easy_init()); });
    const double norla = bytesEach([] { return kx::newObj<norla::CNetRequest>(); });
    std::printf("memory of an idle request: %.0f bytes, of them %.0f of libcurl's handle\n", norla, bare);
}

} // namespace

int main()
{
    try {
        kx::newObj<norla::CNetRequest>(); // initialises libcurl for both sides
        bench::useFirstCore();
        bench::printHeading();
        bool good = true;
        {
            const bench::CLoopbackServer server(largeSize);
            good &= compareSmallGets(server, "2000 keep-alive GETs of 1 KiB, ten headers", true);
            good &= compareSmallGets(server, "the same, bare without the lines", false);
            good &= compareDownloads(server);
            good &= compareUploads(server);
        }
        good &= compareConstruction();
        printMemory();
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "core_bench: %s\n", error.what());
        return 1;
    }
}
