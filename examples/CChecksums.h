#pragma once

#include "examples/localFiles.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <string>

/// A list of digests as sha256sum writes it, a line for each file: 64 hexadecimal digits, a blank, a blank or "*", and
/// the name, of which the last part counts.
class CChecksums {
public:
    /// @throws as fileError(), and naming the line that is none
    explicit CChecksums(const std::string& file)
        : m_file(file)
    {
        std::ifstream lines(file);
        if (!lines)
            throw fileError("The file '" + shownPath(file) + "' cannot be read", errno);
        long long number = 0;
        for (std::string line; std::getline(lines, line);) {
            ++number;
            if (line.ends_with('\r'))
                line.pop_back();
            if (!line.empty() && !take(line))
                throw usageError("line " + kx::toString(number) + " of " + shownPath(file)
                    + " is none of sha256sum's, or differs from another one about the same file");
        }
        if (lines.bad())
            throw fileError("The file '" + shownPath(file) + "' cannot be read", EIO);
    }

    /// @param name of a file, without its folder
    /// @throws as usageError() when it is not in the list
    std::string digestOf(const std::string& name) const
    {
        const auto found = m_digests.find(name);
        if (found == m_digests.end())
            throw usageError("no digest for " + shownPath(name) + " in " + shownPath(m_file));
        return found->second;
    }

private:
    bool take(const std::string& line)
    {
        constexpr size_t digits = 64;
        if (line.find_first_not_of("0123456789abcdefABCDEF") != digits || line.size() < digits + 3)
            return false;
        if (line[digits] != ' ' || (line[digits + 1] != ' ' && line[digits + 1] != '*'))
            return false;
        const std::string path = line.substr(digits + 2);
        const std::string digest = line.substr(0, digits);
        const auto [place, isNew] = m_digests.emplace(path.substr(path.rfind('/') + 1), digest);
        return isNew || place->second == digest;
    }

    const std::string m_file;
    std::map<std::string, std::string> m_digests; // by name
};
