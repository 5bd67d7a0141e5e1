// Downloads many URLs at once into files of their names. Ctrl-C withdraws what is still running.
#include "examples/knownHosts.h"
#include "kx/base/CInvalidArgError.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* usage = R"(Usage: downloads [--ca FILE] FOLDER URL...
Downloads the URLs (http, https, ftp, ftps, sftp) at once. Each becomes a file in FOLDER, named after the last part of its path.
  --ca FILE  trust the certificates in this file only
)";

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int)
{
    interrupted = 1;
}

namespace fs = std::filesystem;

fs::path fileNameOf(const std::string& url)
{
    const std::string path = url.substr(0, url.find_first_of("?#"));
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name.empty() || name == "." || name == "..")
        throw kx::CInvalidArgError("no file name in the URL " + textOf(url, "A URL"), "downloads");
    return name;
}

/// One URL on its way into a file. It is written under another name, so that no half file ever has the final one.
class CDownload : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CDownload(const std::string& url, const fs::path& file, const std::string& authority)
        : m_file(file)
        , m_part(file.string() + ".part")
        , m_out(m_part, std::ios::binary)
    {
        if (!m_out)
            throw kx::CError("The file '" + shownPath(m_part.native()) + "' cannot be written.");
        m_request->setURL(textOf(url, "A URL"));
        m_request->setSSHKnownHostsPath(usersKnownHosts());
        if (!authority.empty())
            m_request->setRootCertBundlePath(Path::fromBytes(authority));
    }

    /// Half a file is of no use to anybody.
    ~CDownload() override
    {
        std::error_code ignored; // it may be there no longer
        fs::remove(m_part, ignored);
    }

    norla::CNetRequest* request() { return m_request.get(); }

    /// The request and its sink refer to each other from start() to finish().
    void start(norla::IAsyncNetRequestManager& manager)
    {
        m_request->setReceiveDataSink(this);
        manager.addRequest(m_request.get());
    }

    int write(const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap&) override
    {
        if (responseCode >= 300) // the text of an error, not the file
            return size;
        if (!m_out.write(reinterpret_cast<const char*>(data), size))
            throw kx::CError("The output cannot be written.");
        m_received += size;
        return size;
    }

    /// Gives the file its name. @throws kx::CError when the download has failed or was withdrawn
    void finish()
    {
        m_request->setReceiveDataSink(nullptr);
        if (!m_request->isAsyncDone())
            throw kx::CError("withdrawn");
        m_request->checkAsyncResult();
        m_out.close();
        if (!m_out)
            throw kx::CError("The output cannot be written.");
        fs::rename(m_part, m_file);
    }

    /// Called on the thread of the transfers, like write().
    std::string progress() const
    {
        const auto total = static_cast<long long>(m_request->getDownloadSize());
        std::string text = m_file.filename().string() + ": " + std::to_string(m_received);
        if (total > 0)
            text += " of " + std::to_string(total);
        return text + " bytes";
    }

private:
    const fs::path m_file;
    const fs::path m_part;
    std::ofstream m_out;
    long long m_received = 0;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

using Downloads = std::vector<kx::P<CDownload>>;

/// Keeps a line for each download on the terminal.
class CProgress : public kx::CBase, public virtual norla::CAsyncNetRequestThread::IProgressHandler {
public:
    explicit CProgress(const Downloads& downloads)
        : m_downloads(downloads)
    {
    }

    void onProgress() override
    {
        std::string text;
        for (const auto& download : m_downloads)
            text += "\r\033[K" + download->progress() + "\n";
        if (text == m_shown)
            return;
        if (!m_shown.empty())
            std::fprintf(stderr, "\033[%zuA", m_downloads.size()); // back to the first line
        std::fputs(text.c_str(), stderr);
        m_shown = text;
    }

private:
    const Downloads& m_downloads;
    std::string m_shown;
};

/// Blocks until all have ended, or until Ctrl-C.
void run(const Downloads& downloads)
{
    const bool onTerminal = isatty(STDERR_FILENO) != 0;
    const auto progress = onTerminal ? kx::newObj<CProgress>(downloads) : nullptr;
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>(progress.get());
    for (const auto& download : downloads)
        download->start(*thread);
    thread->start();
    for (const auto& download : downloads) {
        while (!interrupted && thread->isAlive() && !download->request()->waitAsyncDone(100))
            continue;
    }
    thread->stop(true); // withdraws what still runs
}

/// @return how many have failed
int finish(const Downloads& downloads)
{
    int failures = 0;
    for (const auto& download : downloads) {
        try {
            download->finish();
        } catch (const std::exception& error) {
            ++failures;
            std::cerr << "downloads: " << download->request()->getURL() << ": " << error.what() << '\n';
        }
    }
    return failures;
}

int downloadAll(const fs::path& folder, const std::vector<std::string>& urls, const std::string& authority)
{
    Downloads downloads;
    std::set<fs::path> names;
    for (const std::string& url : urls) {
        const fs::path name = fileNameOf(url);
        if (!names.insert(name).second)
            throw kx::CInvalidArgError("two files named " + shownPath(name.native()), "downloads");
        downloads.push_back(kx::newObj<CDownload>(url, folder / name, authority));
    }
    std::signal(SIGINT, onInterrupt);
    run(downloads);
    return finish(downloads);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    std::string authority;
    if (words.size() >= 2 && words[0] == "--ca") {
        authority = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
    if (words.size() < 2 || words[0].starts_with("--")) {
        std::cerr << usage;
        return 2;
    }
    try {
        const int failures = downloadAll(words[0], {words.begin() + 1, words.end()}, authority);
        if (interrupted)
            return 128 + SIGINT;
        return failures == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "downloads: " << error.what() << '\n';
        return 1;
    }
}
