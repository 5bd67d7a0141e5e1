#pragma once

#include "examples/CAddress.h"
#include "examples/CArguments.h"
#include "examples/CChecksums.h"
#include "examples/CLogins.h"
#include "examples/localFiles.h"
#include "norla/files/CFileDownload.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A file that the program get is to fetch.
struct CGetTarget {
    CAddress address;
    std::filesystem::path path = {};
    kx::String sha256 = {}; ///< empty: nobody knows it
};

/// What the command line of the program get asks for, checked before anything is fetched.
class CGetTargets {
public:
    /// Asks for passwords where some are missing.
    /// @throws as usageError() and fileError()
    explicit CGetTargets(const CArguments& arguments)
        : m_arguments(arguments)
    {
        if (arguments.has("--checksums"))
            m_checksums.emplace(arguments.value("--checksums"));
        for (const std::string& url : urls())
            m_targets.push_back({.address = CAddress(url)});
        if (m_targets.empty())
            throw usageError("URL is missing");
        requireOne("--output");
        requireOne("--sha256");
        constexpr std::array<std::array<const char*, 2>, 5> contradictions{
            {{"--output", "--directory"}, {"--output", "--server-names"}, {"--overwrite", "--skip"},
                {"--resume", "--anew"}, {"--sha256", "--checksums"}}};
        for (const auto& [first, second] : contradictions) {
            if (arguments.has(first) && arguments.has(second))
                throw usageError(shownPath(first) + " and " + shownPath(second) + " exclude each other");
        }
        takePlaces();
        takeDigests();
        takeLogins();
    }

    const std::vector<CGetTarget>& all() const { return m_targets; }

private:
    std::vector<std::string> urls() const
    {
        std::vector<std::string> all = m_arguments.operands();
        const std::string list = m_arguments.value("--input");
        if (list == "-")
            readURLs(std::cin, "standard input", all);
        else if (m_arguments.has("--input")) {
            std::ifstream lines(list);
            readURLs(lines, "The file '" + shownPath(list) + "' cannot be read", all);
        }
        return all;
    }

    static void readURLs(std::istream& lines, const kx::String& name, std::vector<std::string>& all)
    {
        if (!lines)
            throw fileError(name, errno);
        for (std::string line; std::getline(lines, line);) {
            constexpr const char* blanks = " \t\r";
            const size_t start = line.find_first_not_of(blanks);
            if (start != std::string::npos && line[start] != '#')
                all.push_back(line.substr(start, line.find_last_not_of(blanks) + 1 - start));
        }
        if (lines.bad())
            throw fileError(name, EIO);
    }

    void requireOne(const std::string& option) const
    {
        if (m_arguments.has(option) && m_targets.size() > 1)
            throw usageError("option '" + shownPath(option) + "' is for one URL");
    }

    void takePlaces()
    {
        const std::string folder = m_arguments.value("--directory");
        if (m_arguments.has("--output")) {
            m_targets.front().path = m_arguments.value("--output");
            if (m_targets.front().path == "-")
                throw usageError("no file '-': the program fetch writes to standard output");
        } else {
            requireFolder(m_arguments.has("--directory") ? folder : ".");
        }
        std::set<std::filesystem::path> places;
        for (CGetTarget& target : m_targets) {
            if (target.path.empty())
                target.path = std::filesystem::path(folder) / nameFor(target.address);
            if (!places.insert(target.path).second)
                throw usageError("two files named " + shownPath(target.path.filename().native()));
        }
    }

    static std::string nameFor(const CAddress& address)
    {
        std::string name = norla::CFileDownload::suggestNameFor(address.url()).toUTF8();
        if (name.empty())
            throw usageError("no file name in the URL " + address.url() + ": --output gives it one");
        return name;
    }

    void takeDigests()
    {
        m_targets.front().sha256 = m_arguments.text("--sha256");
        if (!m_checksums)
            return;
        for (CGetTarget& target : m_targets)
            target.sha256 = textOf(m_checksums->digestOf(target.path.filename().native()), "a digest");
    }

    /// A login is for one server: others must not learn it.
    void setUser(const kx::String& user)
    {
        const kx::String host = m_targets.front().address.host();
        for (auto& [address, path, sha256] : m_targets) {
            if (address.host() != host)
                throw usageError("--user is for one host, and not for " + host + " and " + address.host());
            address.setUser(user);
        }
    }

    void takeLogins()
    {
        const kx::String user = m_arguments.text("--user");
        if (user.find(L':') != kx::String::npos)
            throw usageError("--user takes a name alone: the password is that of GET_PASSWORD, or is asked for");
        if (!user.isEmpty())
            setUser(user);
        if (m_arguments.has("--key"))
            return;
        CLogins logins("GET_PASSWORD");
        for (auto& [address, path, sha256] : m_targets)
            logins.complete(address);
    }

    const CArguments& m_arguments;
    std::optional<CChecksums> m_checksums;
    std::vector<CGetTarget> m_targets;
};
