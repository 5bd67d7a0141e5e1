// A pool with one thread and with two beside a loop over libcurl's event interface by hand, over TLS.
#include "bench/CPoolRun.h"
#include "bench/bareSockets.h"
#include "bench/cores.h"
#include "bench/turns.h"
#include "norla/core/CNetRequest.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int hostCount = 64; // each with one connection; a thread has those of its own hosts
constexpr int rounds = 7;

/// With one request on a connection at a time, and whatever host the certificate is for.
class CTLSTransfer : public bench::CBareTransfer {
public:
    explicit CTLSTransfer(const std::string& url)
        : CBareTransfer(url)
    {
        const std::string authority = support::CTestCertificates::get().caFile();
        bench::check(curl_easy_setopt(handle(), CURLOPT_PRIVATE, this));
        bench::check(curl_easy_setopt(handle(), CURLOPT_CAINFO, authority.c_str()));
        bench::check(curl_easy_setopt(handle(), CURLOPT_SSL_VERIFYHOST, 0L));
        bench::check(curl_easy_setopt(handle(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1}));
    }
};

bench::Requests tlsRequestsTo(const std::vector<std::string>& urls)
{
    const auto authority = kx::String::fromUTF8(support::CTestCertificates::get().caFile().string());
    bench::Requests requests = bench::requestsTo(urls);
    for (const auto& request : requests) {
        request->setOptionString(CURLOPT_CAINFO, authority);
        request->setOptionInt(CURLOPT_SSL_VERIFYHOST, 0);
        request->setOptionInt(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    }
    return requests;
}

/// Libcurl itself knows where every name is that ends in .localhost.
std::vector<std::string> urlsOfHosts(unsigned short port, const std::string& path)
{
    std::vector<std::string> urls;
    for (int host = 0; host < hostCount; ++host)
        urls.push_back("https://host-" + std::to_string(host) + ".localhost:" + std::to_string(port) + path);
    return urls;
}

bool compare(const char* name, const std::vector<std::string>& urls, int transfers, double limit)
{
    bench::useFirstCore();
    bench::CBareSocketLoop<CTLSTransfer> bare(urls);
    bench::CPoolRun one(tlsRequestsTo(urls));
    bench::useAllCores();
    bench::CPoolRun two(tlsRequestsTo(urls), 2);
    bench::useFirstCore();
    const auto running = [transfers](auto& contender) {
        return [&contender, transfers] { return bench::processCost([&] { contender.run(transfers); }); };
    };
    std::vector<bench::CContender> contenders{
        {"bare sockets", running(bare)}, {"pool", running(one)}, {"pool, 2 threads", running(two)}};
    bench::runInTurns(contenders, rounds);
    const bool good = bench::cpuRatio(contenders[1], contenders[0]) <= limit;
    for (const bench::CContender& contender : contenders)
        bench::printTurnsRow(
            name, contender, contenders[0], transfers, &contender == &contenders[1] && !good ? "  over the limit" : "");
    return good;
}

} // namespace

int main()
{
    try {
        bench::useLastCore();
        const support::CNginxServer server;
        support::writeFile(server.root() / "small.bin", std::string(1024, 'x'));
        support::writeFile(server.root() / "large.bin", std::string(1 << 20, 'x'));
        bench::printTurnsHeading("64 hosts, 64 at once");
        bool good = compare("1 KiB", urlsOfHosts(server.getHTTPSPort(), "/small.bin"), 4'000, 1.05);
        good &= compare("1 MiB", urlsOfHosts(server.getHTTPSPort(), "/large.bin"), 256, 1.05);
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pool_tls_bench: %s\n", error.what());
        return 1;
    }
}
