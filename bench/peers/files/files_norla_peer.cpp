// The library: one file, or many of them, some at once.
#include "norla/files/CFileDownload.h"
#include "norla/files/CFileQueue.h"

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using norla::CFileDownload;
using Words = std::vector<std::string>;

kx::String text(const std::string& bytes)
{
    return kx::String::fromUTF8(bytes);
}

kx::P<CFileDownload> download(const std::string& url, const std::string& file, norla::CFileDownloadOptions options)
{
    options.overwrite = true;
    return kx::newObj<CFileDownload>(text(url), CFileDownload::Path::fromBytes(file), options);
}

void one(const Words& words)
{
    norla::CFileDownloadOptions options;
    if (words.size() > 2)
        options.sha256 = text(words[2]);
    download(words.at(0), words.at(1), options)->run();
}

void segments(const Words& words)
{
    norla::CFileDownloadOptions options;
    options.segments = std::stoi(words.at(2));
    download(words.at(0), words.at(1), options)->run();
}

/// Of a list, a line each.
Words urlsIn(const std::string& list)
{
    std::ifstream lines(list);
    Words urls;
    for (std::string url; std::getline(lines, url);)
        urls.push_back(url);
    return urls;
}

void many(const Words& words)
{
    norla::CFileDownloadOptions options;
    options.pool = kx::newObj<norla::CTransferPool>();
    norla::CFileQueueOptions queueOptions;
    queueOptions.atOnce = std::stoi(words.at(2));
    const auto queue = kx::newObj<norla::CFileQueue>(queueOptions);
    for (const std::string& url : urlsIn(words.at(0)))
        queue->add(download(url, words[1] + url.substr(url.rfind('/')), options).get());
    queue->wait();
    if (queue->getSummary().failed > 0)
        throw std::runtime_error("not all files have come");
}

const std::map<std::string, std::function<void(const Words&)>> operations{
    {"one", one},
    {"segments", segments},
    {"many", many},
};

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count < 4)
            throw std::runtime_error("Usage: files_norla_peer one URL FILE [SHA256] | segments URL FILE COUNT"
                                     " | many LIST FOLDER AT-ONCE");
        operations.at(arguments[1])(Words(arguments + 2, arguments + count));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "files_norla_peer: %s\n", error.what());
        return 1;
    }
}
