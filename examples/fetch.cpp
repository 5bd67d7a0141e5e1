// Fetches a URL (http, https, ftp, ftps, sftp) into a file or to standard output.
#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace {

constexpr const char* usage = R"(Usage: fetch [options] URL
  --output FILE           write to FILE (default: standard output)
  --range FIRST-[LAST]    fetch these bytes only, counted from 0
  --header 'NAME: VALUE'  send this header too; may be repeated
  --user NAME[:PASSWORD]  log in
  --key FILE              log in with this private key (sftp)
  --ca FILE               trust the certificates in this file only
)";

/// Writes the body to a file and, on a terminal, tells how far it is.
class CFileSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CFileSink(norla::CNetRequest& request, std::FILE* file)
        : m_request(request)
        , m_file(file)
    {
    }

    int write(const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap&) override
    {
        if (responseCode >= 300) // the text of an error, not the file; perform() will throw
            return size;
        if (std::fwrite(data, 1, static_cast<size_t>(size), m_file) != static_cast<size_t>(size))
            throw kx::CError("The output cannot be written.");
        m_received += size;
        if (m_onTerminal)
            showProgress(m_request.getDownloadSize());
        return size;
    }

private:
    void showProgress(double total)
    {
        if (total <= 0) {
            std::fprintf(stderr, "\r%lld bytes", m_received);
            return;
        }
        const int percent = static_cast<int>(100 * static_cast<double>(m_received) / total);
        const std::string bar(static_cast<size_t>(percent / 2), '#');
        if (percent != m_shownPercent)
            std::fprintf(stderr, "\r[%-50s] %3d %%%s", bar.c_str(), percent, percent == 100 ? "\n" : "");
        m_shownPercent = percent;
    }

    norla::CNetRequest& m_request;
    std::FILE* m_file;
    const bool m_onTerminal = isatty(STDERR_FILENO) != 0;
    long long m_received = 0;
    int m_shownPercent = -1;
};

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

/// Applies the options to the request and returns the name of the output file, empty for standard output.
std::string applyOptions(norla::CNetRequest& request, int argc, char** argv)
{
    std::string output;
    const auto headers = kx::newObj<norla::CNetHeaders>();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const kx::String value = kx::String::fromUTF8(argv[i + 1]);
        kx::String name, text;
        if (option == "--output")
            output = argv[i + 1];
        else if (option == "--range")
            setRange(request, value);
        else if (option == "--header")
            norla::CNetHeaders::splitEntry(value, name, text), headers->add(name, text);
        else if (option == "--user")
            setUser(request, value);
        else if (option == "--key")
            request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, value);
        else if (option == "--ca")
            request.setRootCertBundlePath(value);
        else
            throw kx::CInvalidArgError("unknown option " + kx::String::fromUTF8(option), "fetch");
    }
    request.setCustomHTTPHeaders(headers.get());
    return output;
}

void fetch(norla::CNetRequest& request, const std::string& output)
{
    // Fetched under another name first, so that a failure leaves no half file and an older one untouched.
    const std::string part = output.empty() ? "" : output + ".part";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        output.empty() ? stdout : std::fopen(part.c_str(), "wb"), [](std::FILE* f) { return f == stdout ? 0 : std::fclose(f); });
    if (!file)
        throw kx::CError("The file '" + kx::String::fromUTF8(part) + "' cannot be written.");
    request.setReceiveDataSink(kx::newObj<CFileSink>(request, file.get()).get());
    try {
        request.perform();
    } catch (const std::exception&) {
        std::remove(part.c_str());
        throw;
    }
    std::fflush(file.get());
    if (!output.empty())
        std::filesystem::rename(part, output);
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
        request->setURL(kx::String::fromUTF8(argv[argc - 1]));
        fetch(*request, applyOptions(*request, argc, argv));
        std::fprintf(stderr, "%.0f bytes, %.0f bytes per second\n", request->getDownloadedBytes(),
            request->getAvgDownloadSpeed());
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "fetch: " << error.what() << '\n';
        return 1;
    }
}
