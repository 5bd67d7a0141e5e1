#pragma once

#include "kx/text/hex.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/files.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace rows {

/// A row a line, its fields separated by tabs.
inline std::vector<std::vector<std::string>> fieldsOf(const std::string& output)
{
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : support::splitLines(output)) {
        std::vector<std::string>& fields = rows.emplace_back();
        for (size_t start = 0; start <= line.size();) {
            const size_t end = std::min(line.find('\t', start), line.size());
            fields.push_back(line.substr(start, end - start));
            start = end + 1;
        }
    }
    return rows;
}

/// What a Python script writes.
/// @throws std::runtime_error with the script's errors if it fails
inline std::vector<std::vector<std::string>> fromScript(const std::string& script, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"python3", script});
    const support::CProcessRun run({.arguments = std::move(arguments), .package = "python3"});
    if (run.exitStatus() != 0)
        throw std::runtime_error(script + ": " + run.errors());
    return fieldsOf(run.output());
}

/// The bytes of a field in hexadecimal.
inline std::string bytesOf(const std::string& hex)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(kx::hexDecodeCharLax(hex[i]) * 16 + kx::hexDecodeCharLax(hex[i + 1]));
    return bytes;
}

} // namespace rows
