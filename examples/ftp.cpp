// Works on the files of an FTP server.
#include "examples/CSentFile.h"
#include "examples/CTargetFile.h"
#include "examples/TCommand.h"
#include "examples/credentials.h"
#include "examples/naming.h"
#include "examples/runProgram.h"
#include "examples/terminal.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/CFTPGetInfoResult.h"
#include "norla/ftp/CFTPListDirResult.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

void printEntry(const norla::CFTPDirEntry& entry)
{
    const char* const types[] = {"other", "file", "dir"};
    const auto time = entry.getModificationTime();
    print(std::string(types[entry.getType()]) + '\t' + std::to_string(entry.getSize()) + '\t'
        + (time.isSet() ? kx::CTimeFields(time).toInternetTimestamp().toUTF8() : "") + '\t'
        + shownOnOutput(entry.getName()) + '\n');
}

/// One file whose name is not UTF-8 does not hide the others.
void requireAllRead(const norla::CFTPListDirResult& listing)
{
    kx::String unread;
    for (const std::string& line : listing.getUnreadableLines())
        unread += "\n" + shownPath(line);
    if (!unread.isEmpty())
        throw kx::CError("These lines of the listing cannot be read:" + unread);
}

using Words = std::vector<std::string>;

class CCommands {
public:
    explicit CCommands(kx::P<norla::CFTPClient> client)
        : m_client(std::move(client))
    {
    }

    void list(const Words& words)
    {
        const kx::String dir = urlPath(words[0]);
        m_client->setKeepUnreadableLines(true);
        naming(dir, m_request.get(), [&] {
            const auto listing = m_client->listDir(*m_request, dir);
            for (const auto& entry : listing->getEntries())
                printEntry(*entry);
            requireAllRead(*listing);
        });
    }

    void get(const Words& words)
    {
        const kx::String path = urlPath(words[0]);
        m_client->prepareDownloadRequest(*m_request, path, 0, -1);
        const auto file = kx::newObj<CTargetFile>(*m_request, words[1]);
        m_request->setReceiveDataSink(file.get());
        naming(path, m_request.get(), [&] { m_request->perform(); });
        file->finish();
    }

    void put(const Words& words)
    {
        const auto source = kx::newObj<CSentFile>(words[0]);
        const kx::String path = urlPath(words[1]);
        m_client->prepareUploadRequest(*m_request, path, nullptr, 0, true);
        m_request->setSendDataSource(source.get());
        m_request->setSendDataSize(source->getLength());
        naming(path, m_request.get(), [&] { m_request->perform(); });
    }

    void move(const Words& words)
    {
        const kx::String from = plainPath(words[0]);
        const kx::String to = plainPath(words[1]);
        m_client->prepareMoveFileRequest(*m_request, from, to, false);
        naming(from + " to " + to, m_request.get(), [&] { m_request->perform(); });
    }

    void remove(const Words& words)
    {
        const kx::String path = plainPath(words[0]);
        naming(path, m_request.get(), [&] { m_client->deleteFile(*m_request, path); });
    }

    void removeTree(const Words& words)
    {
        const kx::String dir = plainPath(words[0]);
        naming(dir, m_request.get(), [&] { m_client->deleteDirWithAllContents(*m_request, dir); });
    }

    void makeDir(const Words& words)
    {
        const kx::String dir = plainPath(words[0]);
        naming(dir, m_request.get(), [&] { m_client->createDirs(*m_request, dir); });
    }

    void stat(const Words& words)
    {
        const kx::String path = plainPath(words[0]);
        m_client->prepareGetInfoRequest(*m_request, path);
        naming(path, m_request.get(), [&] {
            m_request->perform();
            printEntry(*norla::CFTPGetInfoResult(*m_request->getResponseInfo()).getEntry());
        });
    }

private:
    /// A path as it stands in a command.
    static kx::String plainPath(const std::string& bytes) { return textOf(bytes, "a path on the server"); }

    /// A path as it stands in a URL, which may hold any byte.
    static kx::String urlPath(const std::string& bytes) { return escapedBytes(bytes); }

    const kx::P<norla::CFTPClient> m_client;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

const std::vector<TCommand<CCommands>> commands{
    {"ls", {"DIR"}, "lists a directory: type, size, time, name", &CCommands::list},
    {"get", {"PATH", "FILE"}, "fetches a file", &CCommands::get},
    {"put", {"FILE", "PATH"}, "stores a file, making directories that are missing", &CCommands::put},
    {"mv", {"FROM", "TO"}, "renames a file or directory", &CCommands::move},
    {"rm", {"PATH"}, "deletes a file", &CCommands::remove},
    {"rmtree", {"DIR"}, "deletes a directory with everything in it", &CCommands::removeTree},
    {"mkdir", {"DIR"}, "makes a directory, with its parents", &CCommands::makeDir},
    {"stat", {"PATH"}, "shows type, size and time", &CCommands::stat},
};

const CProgram program{
    .name = "ftp",
    .operands = {"HOST[:PORT]", "COMMAND..."},
    .purpose = "Works on the files of an FTP server. The commands:\n" + helpOf(commands),
    .options = {
        {"--tls", "", "demand TLS (AUTH TLS)"},
        {"--implicit-tls", "", "TLS from the first byte"},
        {"--ca", "FILE", "trust the certificates in this file only"},
    },
    .notes = R"(Paths are the server's, from / on. In ls, get and put they stand in a URL: write
a blank as %20. For rmtree they begin with / and have no parts . and .. in them.
No argument may hold a line end or another control character.
The environment gives the login: FTP_USER (else anonymous) and FTP_PASSWORD,
which is asked for at the terminal when it is not set.
)",
};

/// A line end in a path would begin another command.
void refuseControlCharacters(const Words& words)
{
    for (const std::string& word : words) {
        if (std::any_of(word.begin(), word.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }))
            throw usageError("'" + shownPath(word) + "' holds a line end or another control character");
    }
}

norla::CFTPClient::ConnectType connectTypeOf(const CArguments& arguments)
{
    if (arguments.has("--implicit-tls"))
        return norla::CFTPClient::ConnectImplicitTLS;
    return arguments.has("--tls") ? norla::CFTPClient::ConnectExplicitTLS : norla::CFTPClient::ConnectUnencrypted;
}

kx::P<norla::CFTPClient> clientOf(const CArguments& arguments)
{
    const kx::String host = textOf(arguments.operands().front(), "HOST");
    if (host.find(L'/') != kx::String::npos)
        throw usageError("HOST[:PORT] is no URL: '" + host + "'");
    const char* const user = std::getenv("FTP_USER");
    const kx::String name = textOf(user ? user : "anonymous", "the environment variable FTP_USER");
    const bool isAnonymous = !user && !std::getenv("FTP_PASSWORD");
    const kx::String password = isAnonymous ? "anonymous@" : secretOf("FTP_PASSWORD", "Password for " + name);
    auto client = kx::newObj<norla::CFTPClient>(host, name, password, connectTypeOf(arguments));
    client->setSafeDefaults();
    if (arguments.has("--ca"))
        client->setRootCertBundlePath(readablePath(arguments.value("--ca")));
    return client;
}

int ftp(const CArguments& arguments)
{
    const Words& operands = arguments.operands();
    refuseControlCharacters(operands);
    const Words words(operands.begin() + 1, operands.end());
    const auto& command = commandOf(commands, words);
    CCommands work(clientOf(arguments));
    (work.*command.run)({words.begin() + 1, words.end()});
    return exitDone;
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram(program, argc, argv, ftp);
}
