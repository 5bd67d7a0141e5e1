// Whole files beside the programs that people would take instead, from one nginx on the loopback interface: a large
// one, over one connection and over four, many small ones, and how much memory all that takes. The large one from an
// FTP server, too.
#include "bench/peers/contest/CProgramContest.h"
#include "bench/peers/contest/checkedFiles.h"
#include "bench/peers/contest/programs.h"
#include "kx/text/hex.h"
#include "sela/CDigest.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CPureFTPdServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/files.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

using bench::CProgramContender;
using bench::Words;

constexpr long long mebibyte = 1 << 20;
constexpr long long smallSize = 100 << 10;
constexpr char norlaName[] = "libnorla";

/// What the command line sets.
struct CChoice {
    long long largeMiB = 1024;
    int files = 1000;
    int rounds = 5;
    std::filesystem::path into; ///< the folder in which files are made; empty: the one for temporary files
    bool hasSynced = false;     ///< curl with sync behind it, too
    bool hasMemory = true;
};

CChoice choiceOf(int count, char** arguments)
{
    CChoice choice;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--synced") {
            choice.hasSynced = true;
            continue;
        }
        if (name == "--without-memory") {
            choice.hasMemory = false;
            continue;
        }
        const std::string value = ++i < count ? arguments[i] : "";
        const int number = std::atoi(value.c_str());
        if (name == "--into" && !value.empty())
            choice.into = value;
        else if (name == "--mib" && number > 0)
            choice.largeMiB = number;
        else if (name == "--files" && number > 0)
            choice.files = number;
        else if (name == "--rounds" && number > 0)
            choice.rounds = number;
        else
            throw std::runtime_error("Usage: files_peers_bench [--into FOLDER] [--mib SIZE] [--files COUNT]"
                                     " [--rounds COUNT] [--synced] [--without-memory]");
    }
    return choice;
}

std::string sha256Of(const std::filesystem::path& file)
{
    sela::CDigest digest("SHA256");
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> block(mebibyte);
    while (stream.read(block.data(), mebibyte), stream.gcount() > 0)
        digest.update(block.data(), static_cast<size_t>(stream.gcount()));
    digest.finish();
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
}

/// A new folder in another one.
class CFolderIn {
public:
    explicit CFolderIn(const std::filesystem::path& parent)
    {
        std::string name = (parent / "norla-files-XXXXXX").native();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("there can be no folder in " + parent.native());
        m_path = name;
    }
    CFolderIn(const CFolderIn&) = delete;
    CFolderIn& operator=(const CFolderIn&) = delete;
    ~CFolderIn()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// How each of them is told to fetch and to do nothing else.
Words curl(const Words& words)
{
    return bench::joined({"curl", "-q", "-sS", "-f"}, words);
}
Words wget(const Words& words)
{
    return bench::joined({"wget", "--no-config", "-q"}, words);
}
Words aria2(const Words& words)
{
    return bench::joined(
        {"aria2c", "--no-conf", "-q", "--file-allocation=none", "--allow-overwrite=true", "--min-split-size=1M"},
        words);
}

class CComparison {
public:
    explicit CComparison(const CChoice& choice)
        : m_choice(choice)
        , m_target(choice.into.empty() ? std::filesystem::temp_directory_path() : choice.into)
    {
        bench::makeFile(m_large, choice.largeMiB * mebibyte);
        std::filesystem::create_hard_link(m_large, m_ftpServer.root() / "large");
        std::filesystem::create_directory(m_small);
        std::filesystem::create_directory(m_fetched);
        std::string list;
        for (int i = 0; i < choice.files; ++i) {
            const std::string name = std::to_string(1'000'000 + i);
            bench::makeFile(m_small / name, smallSize);
            list += m_server.url("/small-files/" + name) + '\n';
        }
        m_folder.write("list", list);
    }

    void run()
    {
        printVersions();
        const bench::CProgramContest contest(m_folder.path() / "log", {"no_proxy=127.0.0.1"});
        for (auto contenders : {plain(), digested(), inSegments(), overFTP(), many()}) {
            contest.run(contenders, m_choice.rounds);
            bench::printProgramTables(contenders);
        }
        if (m_choice.hasMemory)
            printMemory(contest);
    }

private:
    static void printVersions()
    {
        for (const char* const program : {"curl", "wget", "aria2c", "lftp"}) {
            if (!bench::isInstalled(program))
                continue;
            const std::string line = support::splitLines(support::CProcessRun({program, "--version"}).output()).at(0);
            std::printf("%s\n", line.substr(0, line.find(" (")).c_str());
        }
    }

    CProgramContender intoOne(
        const std::string& name, const std::string& title, const Words& command, const std::filesystem::path& original)
    {
        return {name,
            {{title, command, [this, original](const std::string&) { bench::requireSameFile(m_file, original); }}}};
    }

    std::string largeTitle(const std::string& way) const { return std::to_string(m_choice.largeMiB) + " MiB, " + way; }

    /// Programs that fetch one file and do nothing else with it.
    std::vector<CProgramContender> fetchers(
        const std::string& title, const std::string& url, const std::filesystem::path& original)
    {
        std::vector<CProgramContender> all;
        if (bench::isInstalled("curl"))
            all.push_back(intoOne("curl", title, curl({"-o", m_file, url}), original));
        all.push_back(intoOne(norlaName, title, {NORLA_FILES_NORLA_PEER, "one", url, m_file}, original));
        if (bench::isInstalled("wget"))
            all.push_back(intoOne("wget", title, wget({"-O", m_file, url}), original));
        if (bench::isInstalled("aria2c"))
            all.push_back(intoOne("aria2c", title,
                aria2({"-x1", "-s1", "-d", m_file.parent_path(), "-o", m_file.filename(), url}), original));
        return all;
    }

    std::vector<CProgramContender> plain()
    {
        const std::string title = largeTitle("one connection");
        std::vector<CProgramContender> all = fetchers(title, m_server.url("/large"), m_large);
        // What it takes until the file is on the disk, as it is behind CFileDownload.
        if (m_choice.hasSynced)
            all.push_back(intoOne("curl, and sync", title,
                {"sh", "-c",
                    "curl -q -sS -f -o '" + m_file.native() + "' '" + m_server.url("/large") + "' && sync '"
                        + m_file.native() + "'"},
                m_large));
        return all;
    }

    std::vector<CProgramContender> digested()
    {
        const std::string title = largeTitle("one connection, SHA-256 compared");
        const std::string sum = sha256Of(m_large);
        const std::string url = m_server.url("/large");
        const std::string then = "' && echo '" + sum + "  " + m_file.native() + "' | sha256sum -c";
        std::vector<CProgramContender> all;
        if (bench::isInstalled("curl"))
            all.push_back(intoOne("curl, and sha256sum", title,
                {"sh", "-c", "curl -q -sS -f -o '" + m_file.native() + "' '" + url + then}, m_large));
        all.push_back(intoOne(norlaName, title, {NORLA_FILES_NORLA_PEER, "one", url, m_file, sum}, m_large));
        if (bench::isInstalled("aria2c"))
            all.push_back(intoOne("aria2c", title,
                aria2({"-x1", "-s1", "--checksum=sha-256=" + sum, "-d", m_file.parent_path(), "-o", m_file.filename(),
                    url}),
                m_large));
        return all;
    }

    std::vector<CProgramContender> inSegments()
    {
        const std::string title = largeTitle("four connections");
        const std::string url = m_server.url("/large");
        std::vector<CProgramContender> all;
        if (bench::isInstalled("aria2c"))
            all.push_back(intoOne("aria2c", title,
                aria2({"-x4", "-s4", "-d", m_file.parent_path(), "-o", m_file.filename(), url}), m_large));
        all.push_back(intoOne(norlaName, title, {NORLA_FILES_NORLA_PEER, "segments", url, m_file, "4"}, m_large));
        return all;
    }

    std::vector<CProgramContender> overFTP()
    {
        const std::string title = largeTitle("one connection, FTP");
        const std::string login = m_ftpServer.userName() + ':' + m_ftpServer.password();
        const std::string url = "ftp://" + login + '@' + m_ftpServer.url("/large").substr(std::string("ftp://").size());
        std::vector<CProgramContender> all = fetchers(title, url, m_large);
        if (bench::isInstalled("lftp"))
            all.push_back(intoOne(
                "lftp", title, {"lftp", "--norc", "-c", "get '" + url + "' -o '" + m_file.native() + "'"}, m_large));
        return all;
    }

    std::vector<CProgramContender> many()
    {
        const std::string title = std::to_string(m_choice.files) + " files of 100 KiB, 16 at once";
        const std::string list = (m_folder.path() / "list").native();
        const auto contender = [&](const std::string& name, const Words& command) {
            return CProgramContender{
                name, {{title, command, [this](const std::string&) { bench::requireSameFiles(m_fetched, m_small); }}}};
        };
        std::vector<CProgramContender> all;
        if (bench::isInstalled("curl")) {
            const std::string last = std::to_string(1'000'000 + m_choice.files - 1);
            const Words command = curl({"-Z", "--parallel-max", "16", "-o", m_fetched / "#1",
                m_server.url("/small-files/[1000000-" + last + "]")});
            all.push_back(contender("curl -Z", command));
            if (m_choice.hasSynced)
                all.push_back(contender("curl -Z, and sync",
                    bench::joined({"sh", "-c", "\"$@\" && sync -f '" + m_fetched.native() + "'", "sh"}, command)));
        }
        all.push_back(contender(norlaName, {NORLA_FILES_NORLA_PEER, "many", list, m_fetched, "16"}));
        if (bench::isInstalled("wget")) {
            all.push_back(contender("wget -i, one at once", wget({"-P", m_fetched, "-i", list})));
            const std::string share = std::to_string((m_choice.files + 15) / 16);
            all.push_back(contender("wget, 16 processes",
                {"xargs", "-a", list, "-P16", "-n" + share, "wget", "--no-config", "-q", "-P", m_fetched}));
        }
        if (bench::isInstalled("aria2c"))
            all.push_back(contender("aria2c, 16 at once", aria2({"-j16", "-x1", "-s1", "-d", m_fetched, "-i", list})));
        return all;
    }

    void printMemory(const bench::CProgramContest& contest)
    {
        constexpr std::pair<const char*, long long> sizes[]
            = {{"1 MiB", mebibyte}, {"1 GiB", 1024 * mebibyte}, {"4 GiB", 4096 * mebibyte}};
        std::printf("\n| Memory at most, MiB |");
        std::vector<std::vector<CProgramContender>> columns;
        for (const auto& [title, size] : sizes) {
            std::printf(" %s |", title);
            const std::string path = m_server.big(static_cast<std::uintmax_t>(size));
            columns.push_back(fetchers(title, m_server.url(path), m_server.root() / path.substr(1)));
            columns.back().insert(columns.back().begin(),
                {"libcurl by hand, 10 bytes",
                    {{title, {NORLA_HELLO_BARE, m_server.url("/digits.txt")}, [](const std::string&) {}}}});
            contest.run(columns.back(), 1);
        }
        std::printf("\n|---|---|---|---|\n");
        for (size_t row = 0; row < columns[0].size(); ++row) {
            std::printf("| %s |", columns[0][row].name.c_str());
            for (const auto& column : columns)
                std::printf(" %.1f |", bench::medianOf(column[row].steps[0], &bench::CUse::memory));
            std::printf("\n");
        }
    }

    const CChoice m_choice;
    const support::CNginxServer m_server;
    const support::CPureFTPdServer m_ftpServer;
    const support::CTemporaryFolder m_folder;
    const CFolderIn m_target;
    const std::filesystem::path m_large = m_server.root() / "large";
    const std::filesystem::path m_small = m_server.root() / "small-files";
    const std::filesystem::path m_file = m_target.path() / "file";
    const std::filesystem::path m_fetched = m_target.path() / "fetched";
};

} // namespace

int main(int count, char** arguments)
{
    try {
        CComparison(choiceOf(count, arguments)).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "files_peers_bench: %s\n", error.what());
        return 1;
    }
}
