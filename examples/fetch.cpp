// Fetches a URL (http, https, ftp, ftps, sftp) into a file or to standard output.
#include "examples/CStreamSink.h"
#include "examples/knownHosts.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

constexpr const char* usage = R"(Usage: fetch [options] URL
  --output FILE           write to FILE (default: standard output)
  --range FIRST-[LAST]    fetch these bytes only, counted from 0
  --header 'NAME: VALUE'  send this header too; may be repeated
  --user NAME[:PASSWORD]  log in
  --key FILE              log in with this private key (sftp)
  --known-hosts FILE      believe the servers with these keys only (sftp; default: ~/.ssh/known_hosts)
  --ca FILE               trust the certificates in this file only
)";

void setRange(norla::CNetRequest& request, const kx::String& range)
{
    const size_t dash = range.find(L'-');
    if (dash == kx::String::npos)
        throw kx::CInvalidArgError("no range: " + range, "--range");
    const kx::String last = range.substr(dash + 1);
    const long long start = kx::parseInt64(range.substr(0, dash), false);
    request.setRange(start, last.isEmpty() ? -1 : kx::parseInt64(last, false) - start + 1);
}

void setUser(norla::CNetRequest& request, const kx::String& user)
{
    const size_t colon = user.find(L':');
    request.setUserName(user.substr(0, colon));
    if (colon != kx::String::npos)
        request.setUserPassword(user.substr(colon + 1));
}

void addHeader(norla::CNetHeaders& headers, const kx::String& line)
{
    kx::String name, value;
    norla::CNetHeaders::splitEntry(line, name, value);
    headers.add(name, value);
}

/// @return the name of the output file, empty for standard output
std::string applyOptions(norla::CNetRequest& request, int argc, char** argv)
{
    std::string output;
    const auto headers = kx::newObj<norla::CNetHeaders>();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const auto value = [&] { return textOf(argv[i + 1], "The value of " + shownPath(option)); };
        if (option == "--output")
            output = argv[i + 1];
        else if (option == "--range")
            setRange(request, value());
        else if (option == "--header")
            addHeader(*headers, value());
        else if (option == "--user")
            setUser(request, value());
        else if (option == "--key")
            request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, value());
        else if (option == "--known-hosts")
            request.setSSHKnownHostsPath(Path::fromBytes(argv[i + 1]));
        else if (option == "--ca")
            request.setRootCertBundlePath(Path::fromBytes(argv[i + 1]));
        else
            throw kx::CInvalidArgError("unknown option " + shownPath(option), "fetch");
    }
    request.setCustomHTTPHeaders(headers.get());
    return output;
}

void fetchTo(std::ostream& out, norla::CNetRequest& request)
{
    request.setReceiveDataSink(kx::newObj<CStreamSink>(request, out).get());
    request.perform();
    if (!out.flush())
        throw kx::CError("The output cannot be written.");
    request.setReceiveDataSink(nullptr); // which ends the progress bar's line
}

/// Fetches under another name first: a failure leaves no half file, and an older file of that name untouched.
void fetchToFile(const std::string& name, norla::CNetRequest& request)
{
    const std::string part = name + ".part";
    try {
        std::ofstream file(part, std::ios::binary);
        fetchTo(file, request);
    } catch (const std::exception&) {
        std::remove(part.c_str());
        throw;
    }
    std::filesystem::rename(part, name);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc % 2 != 0) {
        std::cerr << usage;
        return 2;
    }
    try {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(textOf(argv[argc - 1], "The URL"));
        request->setSSHKnownHostsPath(usersKnownHosts());
        const std::string output = applyOptions(*request, argc, argv);
        if (output.empty())
            fetchTo(std::cout, *request);
        else
            fetchToFile(output, *request);
        std::fprintf(stderr, "%.0f bytes at %.0f bytes per second\n", request->getDownloadedBytes(),
            request->getAvgDownloadSpeed());
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "fetch: " << error.what() << '\n';
        return 1;
    }
}
