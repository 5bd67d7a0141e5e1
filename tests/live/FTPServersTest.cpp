// Where FTP servers differ: docs/ftp-servers.md holds the table that these tests make.
#include "tests/live/FTPSession.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

using live::CSession;
using Security = support::IFTPServer::Security;

/// "done", or how the server or libcurl refused.
std::string outcomeOf(const std::function<void()>& action)
{
    const auto error = support::errorOf(action);
    if (!error)
        return "done";
    const std::string code = error->getProps().get("responseCode").toUTF8();
    return code.empty() ? "libcurl's error " + std::to_string(error->getCode()) : "refused, " + code;
}

std::string yesOrNo(bool value)
{
    return value ? "yes" : "no";
}

struct CHabit {
    const char* question;
    std::function<std::string(CSession&)> answer;
};

/// Moves /from with a file into /to and says what is where afterwards.
std::string movedTree(CSession& session, const kx::String& to)
{
    session.write("from/file.txt", "x");
    const std::string outcome = outcomeOf([&] { session.moveDir("/from", to, true); });
    const std::string target = to.toUTF8().substr(1);
    if (outcome == "done" && session.exists(target + "/file.txt") && !session.exists("from"))
        return "done";
    std::string left = session.exists("from/file.txt") ? "the old one stays" : "";
    if (session.exists(target + "/file.txt"))
        left += left.empty() ? "moved" : ", and moved";
    if (session.exists(target) && !session.exists(target + "/file.txt"))
        left += left.empty() ? "an empty target is left" : ", an empty target is left";
    return outcome + ": " + left;
}

std::vector<CHabit> habits()
{
    return {
        {"MLSD lists \".\"",
            [](CSession& session) -> std::string {
                std::string answer = "no";
                const std::string outcome = outcomeOf([&] {
                    const auto listing = session.client().listDir(session.request(), "/");
                    for (const auto& entry : listing->getEntries())
                        answer = entry->getName() == "." ? "yes" : answer;
                });
                return outcome == "done" ? answer : "no MLSD: " + outcome;
            }},
        {"MLST gives the whole path",
            [](CSession& session) -> std::string {
                kx::String name;
                const std::string outcome = outcomeOf([&] { name = session.info("/digits.txt")->getName(); });
                return outcome == "done" ? yesOrNo(name == "/digits.txt") : "no MLST: " + outcome;
            }},
        {"MLST of a missing path", [](CSession& session) { return outcomeOf([&] { session.info("/missing"); }); }},
        {"listing of a missing directory",
            [](CSession& session) { return outcomeOf([&] { session.list("/missing"); }); }},
        {"file moved onto a file",
            [](CSession& session) {
                session.write("a", "new");
                session.write("b", "old");
                return outcomeOf([&] { session.moveFile("/a", "/b"); });
            }},
        {"file moved, target's directory made",
            [](CSession& session) {
                session.write("a", "new");
                return outcomeOf([&] { session.moveFile("/a", "/x/y/b", true); });
            }},
        {"directory moved onto an empty one",
            [](CSession& session) {
                session.write("from/file.txt", "x");
                std::filesystem::create_directories(session.onDisk("to"));
                return outcomeOf([&] { session.moveDir("/from", "/to"); });
            }},
        {"directory moved, parents there, target made", [](CSession& session) { return movedTree(session, "/to"); }},
        {"directory moved, parents made too", [](CSession& session) { return movedTree(session, "/p/q/to"); }},
        {"MKD of a directory that exists",
            [](CSession& session) {
                std::filesystem::create_directories(session.onDisk("there"));
                return outcomeOf([&] { session.client().createDir(session.request(), "/there", false); });
            }},
        {"RMD of a full directory",
            [](CSession& session) {
                session.write("full/file.txt", "x");
                return outcomeOf([&] { session.client().removeDir(session.request(), "/full"); });
            }},
        {"DELE of a directory",
            [](CSession& session) {
                std::filesystem::create_directories(session.onDisk("there"));
                return outcomeOf([&] { session.client().deleteFile(session.request(), "/there"); });
            }},
        {"download from behind the end",
            [](CSession& session) { return outcomeOf([&] { session.download("/digits.txt", 20, 5); }); }},
        {"listing of a name that is not UTF-8",
            [](CSession& session) -> std::string {
                session.write("Gr\xfcn", "x");
                session.client().setKeepUnreadableLines(true);
                std::string answer = "otherwise";
                const std::string outcome = outcomeOf([&] {
                    const auto listing = session.client().listDir(session.request(), "/");
                    for (const auto& entry : listing->getEntries())
                        answer = entry->getName() == "Gr?n" ? "Gr?n" : answer;
                    for (const std::string& line : listing->getUnreadableLines())
                        answer = line.ends_with("; Gr\xfcn") ? "its bytes" : answer;
                });
                return outcome == "done" ? answer : "no MLSD: " + outcome;
            }},
        {"listing of a link as a directory",
            [](CSession& session) -> std::string {
                session.write("real/file.txt", "x");
                std::filesystem::create_directory_symlink("real", session.onDisk("link"));
                std::string answer;
                const std::string outcome = outcomeOf([&] {
                    const auto entries = session.list("/");
                    const auto link = entries.find("link");
                    answer = link == entries.end() ? "not listed"
                                                   : yesOrNo(link->second->getType() == norla::CFTPDirEntry::TypeDir);
                });
                return outcome == "done" ? answer : "no MLSD: " + outcome;
            }},
    };
}

const std::vector<live::CServerRow>& servers()
{
    static const std::vector<live::CServerRow> rows{{"pyftpdlib", live::makePyftpdlib, Security::None},
        {"ProFTPD", live::makeLenient<support::CProFTPDServer>, Security::None},
        {"Pure-FTPd", live::makePureFTPd, Security::None},
        {"vsftpd", live::makeLenient<support::CVsftpdServer>, Security::None}};
    return rows;
}

std::string tableOfHabits()
{
    std::string table = "| |";
    for (const auto& server : servers())
        table += std::string(" ") + server.name + " |";
    table += "\n|---|---|---|---|---|\n";
    for (const CHabit& habit : habits()) {
        table += std::string("| ") + habit.question + " |";
        for (const auto& server : servers()) {
            CSession session(server);
            table += " " + habit.answer(session) + " |";
        }
        table += "\n";
    }
    return table;
}

/// Rows of the table, made with libcurl 7.88, whose numbers are others with a newer one.
std::string withNumbersOfLibcurl(std::string table)
{
    if (!support::isLibcurlSince(8, 14))
        return table;
    const std::string row = "| download from behind the end | ";
    const size_t start = table.find(row) + row.size();
    const std::string newer = "refused, 225 | refused, 226 | refused, 226 | refused, 225 |";
    return table.replace(start, table.find('\n', start) - start, newer);
}

TEST(FTPServersTest, differAsTheDocumentationTells)
{
    const std::string documentation = live::contentOf(NORLA_DOCS_DIR "/ftp-servers.md");
    const size_t start = documentation.find("| |");
    ASSERT_NE(start, std::string::npos);
    const std::string documented = documentation.substr(start, documentation.find("\n\n", start) + 1 - start);
    EXPECT_EQ(withNumbersOfLibcurl(documented), tableOfHabits());
}

} // namespace
