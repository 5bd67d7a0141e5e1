#pragma once

#include "tests/live/exampleRun.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace live {

/// A folder that the example get fetches into, and a server for it.
class CGetRun {
public:
    const support::CNginxServer& server() const { return m_server; }
    std::filesystem::path folder() const { return m_folder.path(); }
    static std::string caFile() { return support::CTestCertificates::get().caFile().string(); }

    /// Runs get with "--directory" and these words.
    support::CProcessRun get(std::vector<std::string> words) const { return run(command(std::move(words))); }

    /// @return the words, with "get --directory FOLDER" before them
    std::vector<std::string> command(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"get", "--directory", folder().string()});
        return words;
    }

    void write(const std::string& name, const std::string& bytes) const { m_folder.write(name, bytes); }
    std::string content(const std::string& name) const { return m_folder.read(name); }

    /// What is in the folder, "NAME=CONTENT" each, sorted.
    std::vector<std::string> files() const
    {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(folder()))
            all.push_back(entry.path().filename().string() + "=" + contentOf(entry.path()));
        std::sort(all.begin(), all.end());
        return all;
    }

    /// Writes a file into another folder. @return its path
    std::string elsewhere(const std::string& name, const std::string& bytes) const
    {
        return m_elsewhere.write(name, bytes).string();
    }

private:
    const support::CNginxServer m_server;
    const support::CTemporaryFolder m_folder;
    const support::CTemporaryFolder m_elsewhere;
};

} // namespace live
