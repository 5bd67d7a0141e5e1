// Fetches a URL (http, https, ftp, ftps, sftp) into a file or to standard output.
#include "examples/CAddress.h"
#include "examples/COutputSink.h"
#include "examples/CRangeSink.h"
#include "examples/CTargetFile.h"
#include "examples/localFiles.h"
#include "examples/naming.h"
#include "examples/runProgram.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

#include <cstdio>
#include <iostream>
#include <limits>

namespace {

const CProgram program{
    .name = "fetch",
    .operands = {"URL"},
    .purpose = "Fetches a URL (http, https, ftp, ftps, sftp) into a file or to standard output.\n",
    .options = {
        {"--output", "FILE", "write to FILE (default: standard output)"},
        {"--range", "FIRST-[LAST]", "fetch these bytes only, counted from 0"},
        {"--header", "'NAME: VALUE'", "send this header too", true},
        {"--user", "NAME", "log in"},
        {"--key", "FILE", "log in with this private key (sftp)"},
        {"--known-hosts", "FILE", "believe the servers in this file only (sftp)"},
        {"--ca", "FILE", "trust the certificates in this file only"},
    },
    .notes = R"(The password is that of the environment variable FETCH_PASSWORD, or is asked for
at the terminal. One that stands on the command line (--user NAME:PASSWORD, or
in the URL) can be seen by all users of this machine (ps).
SFTP servers are believed that are in ~/.ssh/known_hosts.
)",
};

struct CRange {
    long long first = 0;
    long long last = -1; ///< -1: up to the end
};

CRange rangeOf(const kx::String& text)
{
    constexpr long long most = std::numeric_limits<long long>::max() - 1;
    const size_t dash = text.find(L'-');
    if (dash == kx::String::npos)
        throw usageError("no range FIRST-[LAST]: '" + text + "'");
    CRange range{.first = numberOf(text.substr(0, dash), "the first byte of --range", 0, most)};
    const kx::String last = text.substr(dash + 1);
    if (!last.isEmpty())
        range.last = numberOf(last, "the last byte of --range", range.first, most);
    return range;
}

void setUser(CAddress& address, const kx::String& user)
{
    const size_t colon = user.find(L':');
    address.setUser(user.substr(0, colon));
    if (colon == kx::String::npos)
        return;
    std::cerr << "fetch: warning: all users of this machine can see a password on the command line; "
                 "FETCH_PASSWORD, or the question at the terminal, keeps it to yourself\n";
    address.setPassword(user.substr(colon + 1));
}

CAddress addressOf(const CArguments& arguments)
{
    CAddress address(arguments.operands().front());
    if (arguments.has("--user"))
        setUser(address, arguments.text("--user"));
    if (!arguments.has("--key"))
        address.completeLogin("FETCH_PASSWORD");
    return address;
}

void applyOptions(norla::CNetRequest& request, const CArguments& arguments)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    for (const kx::String& line : arguments.texts("--header")) {
        if (line.find(L':') == kx::String::npos)
            throw usageError("no header NAME: VALUE: '" + line + "'");
        kx::String name, value;
        norla::CNetHeaders::splitEntry(line, name, value);
        if (line.find(L'\r') != kx::String::npos || line.find(L'\n') != kx::String::npos)
            throw usageError("the header '" + line + "' holds a line end, which would begin another one");
        headers->add(name, value);
    }
    request.setCustomHTTPHeaders(headers.get());
    if (arguments.has("--key")) {
        readablePath(arguments.value("--key"));
        request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, arguments.text("--key"));
    }
    if (arguments.has("--known-hosts"))
        request.setSSHKnownHostsPath(Path::fromBytes(arguments.value("--known-hosts")));
    if (arguments.has("--ca"))
        request.setRootCertBundlePath(readablePath(arguments.value("--ca")));
}

using Sink = norla::CNetRequest::IDataSink;

/// @param sink of what is fetched
void fetchTo(kx::P<Sink> sink, norla::CNetRequest& request, const CAddress& address, const CArguments& arguments)
{
    kx::P<CRangeSink> rangeSink;
    if (arguments.has("--range")) {
        const CRange range = rangeOf(arguments.text("--range"));
        request.setRange(range.first, range.last < 0 ? -1 : range.last - range.first + 1);
        if (address.isHTTP())
            sink = rangeSink = kx::newObj<CRangeSink>(sink.get(), range.first, range.last);
    }
    request.setReceiveDataSink(sink.get());
    naming(address.url(), &request, [&] {
        request.perform();
        if (rangeSink)
            rangeSink->requireEnd();
    });
    request.setReceiveDataSink(nullptr); // which ends the progress bar's line
}

int fetch(const CArguments& arguments)
{
    const CAddress address = addressOf(arguments);
    const auto request = kx::newObj<norla::CNetRequest>();
    address.applyTo(*request);
    applyOptions(*request, arguments);
    if (arguments.has("--output")) {
        const auto file = kx::newObj<CTargetFile>(*request, arguments.value("--output"));
        fetchTo(file, *request, address, arguments);
        file->finish();
    } else {
        fetchTo(kx::newObj<COutputSink>(*request), *request, address, arguments);
    }
    std::fprintf(
        stderr, "%.0f bytes at %.0f bytes per second\n", request->getDownloadedBytes(), request->getAvgDownloadSpeed());
    return exitDone;
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram(program, argc, argv, fetch);
}
