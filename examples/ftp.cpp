// Works on the files of an FTP server.
#include "examples/CFileSource.h"
#include "examples/CStreamSink.h"
#include "examples/arguments.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/CFTPGetInfoResult.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* usage = R"(Usage: ftp [--tls | --implicit-tls] [--ca FILE] HOST[:PORT] COMMAND
  ls DIR            lists a directory: type, size, time, name
  get PATH FILE     fetches a file
  put FILE PATH     stores a file, making directories that are missing
  mv FROM TO        renames a file or directory
  rm PATH           deletes a file
  rmtree DIR        deletes a directory with everything in it; DIR begins with /, without parts . and ..
  mkdir DIR         makes a directory, with its parents
  stat PATH         shows type, size and time
Paths are the server's, from / on. In ls, get and put they stand in a URL: write a blank as %20.
No argument may hold a line end or another control character.
The environment gives the login: FTP_USER and FTP_PASSWORD (else anonymous).
)";

class CUsageError : public std::exception {};

kx::String variable(const char* name, const char* otherwise)
{
    const char* const value = std::getenv(name);
    return textOf(value ? value : otherwise, "The environment variable " + kx::String::fromLatin1(name));
}

void print(const norla::CFTPDirEntry& entry)
{
    const char* const types[] = {"other", "file", "dir"};
    std::cout << types[entry.getType()] << '\t' << entry.getSize() << '\t';
    if (entry.getModificationTime().isSet())
        std::cout << kx::CTimeFields(entry.getModificationTime()).toInternetTimestamp();
    std::cout << '\t' << entry.getName() << '\n';
}

class CCommands {
public:
    explicit CCommands(kx::P<norla::CFTPClient> client)
        : m_client(std::move(client))
    {
    }

    void list(const kx::String& dir)
    {
        const auto listing = m_client->listDir(*m_request, dir);
        for (const auto& entry : listing->getEntries())
            print(*entry);
    }

    void get(const kx::String& path, const std::string& file)
    {
        const std::string partFile = file + ".part"; // the file has its name when it is complete
        std::ofstream out(partFile, std::ios::binary);
        m_client->prepareDownloadRequest(*m_request, path, 0, -1);
        m_request->setReceiveDataSink(kx::newObj<CStreamSink>(*m_request, out).get());
        try {
            m_request->perform();
        } catch (...) {
            std::filesystem::remove(partFile);
            throw;
        }
        out.close();
        if (!out)
            throw kx::CError("The file '" + shownPath(partFile) + "' cannot be written.");
        std::filesystem::rename(partFile, file);
    }

    void put(const std::string& file, const kx::String& path)
    {
        const auto source = kx::newObj<CFileSource>(file);
        m_client->prepareUploadRequest(*m_request, path, nullptr, 0, true);
        m_request->setSendDataSource(source.get());
        m_request->setSendDataSize(source->getLength());
        m_request->perform();
    }

    void move(const kx::String& from, const kx::String& to)
    {
        m_client->prepareMoveFileRequest(*m_request, from, to, false);
        m_request->perform();
    }

    void remove(const kx::String& path) { m_client->deleteFile(*m_request, path); }
    void removeTree(const kx::String& dir) { m_client->deleteDirWithAllContents(*m_request, dir); }
    void makeDir(const kx::String& dir) { m_client->createDirs(*m_request, dir); }

    void stat(const kx::String& path)
    {
        m_client->prepareGetInfoRequest(*m_request, path);
        m_request->perform();
        print(*norla::CFTPGetInfoResult(*m_request->getResponseInfo()).getEntry());
    }

private:
    const kx::P<norla::CFTPClient> m_client;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

void execute(CCommands& commands, const std::vector<std::string>& words)
{
    const auto is = [&words](const char* name, size_t count) { return words[0] == name && words.size() == count + 1; };
    const auto text = [&words](size_t index) {
        return textOf(
            words[index], "Argument " + kx::toString(static_cast<long long>(index)) + " of " + shownPath(words[0]));
    };
    if (is("ls", 1))
        commands.list(text(1));
    else if (is("get", 2))
        commands.get(text(1), words[2]);
    else if (is("put", 2))
        commands.put(words[1], text(2));
    else if (is("mv", 2))
        commands.move(text(1), text(2));
    else if (is("rm", 1))
        commands.remove(text(1));
    else if (is("rmtree", 1))
        commands.removeTree(text(1));
    else if (is("mkdir", 1))
        commands.makeDir(text(1));
    else if (is("stat", 1))
        commands.stat(text(1));
    else
        throw CUsageError();
}

/// A line end in a path would begin another command.
void refuseControlCharacters(const std::vector<std::string>& words)
{
    long long number = 0;
    for (const std::string& word : words) {
        ++number;
        for (const char character : word) {
            if ((character >= 0 && character < ' ') || character == 0x7f)
                throw kx::CError(
                    "Argument " + kx::toString(number) + " holds a line end or another control character.");
        }
    }
}

void run(std::vector<std::string> words)
{
    refuseControlCharacters(words);
    auto connectType = norla::CFTPClient::ConnectUnencrypted;
    Path certificates;
    while (!words.empty() && words[0].starts_with("--")) {
        if (words[0] == "--tls") {
            connectType = norla::CFTPClient::ConnectExplicitTLS;
        } else if (words[0] == "--implicit-tls") {
            connectType = norla::CFTPClient::ConnectImplicitTLS;
        } else if (words[0] == "--ca" && words.size() > 1) {
            certificates = Path::fromBytes(words[1]);
            words.erase(words.begin());
        } else {
            throw CUsageError();
        }
        words.erase(words.begin());
    }
    if (words.size() < 2)
        throw CUsageError();
    const auto client = kx::newObj<norla::CFTPClient>(textOf(words[0], "HOST"), variable("FTP_USER", "anonymous"),
        variable("FTP_PASSWORD", "anonymous@"), connectType);
    client->setRootCertBundlePath(certificates);
    CCommands commands(client);
    execute(commands, {words.begin() + 1, words.end()});
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
        std::cerr << "ftp: " << error.what() << '\n';
        return 1;
    }
}
