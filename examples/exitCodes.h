#pragma once

#include "examples/printable.h"
#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/base/systemErrorText.h"

#include <iostream>
#include <string>
#include <system_error>

/// How every program ends.
enum ExitCode : int { exitDone = 0, exitFailed = 1, exitWrongUsage = 2, exitLocalFile = 3, exitSignal = 128 };

inline constexpr const char* exitCodesHelp = R"(Exit codes:
  0      everything is done
  1      something has failed: the transfer, the server or the network
  2      wrong usage of the command line or of the environment
  3      a local file, or standard output, cannot be read or written
  128+N  ended by signal N
)";

/// What is wrong with the words that the program was started with.
inline kx::CError usageError(const kx::String& message)
{
    return kx::CError(message, "usage");
}

/// What the system says about a local file.
/// @param name as people know it
/// @param errorNumber of the system (errno)
inline kx::CError fileError(const kx::String& name, int errorNumber)
{
    return kx::CError(name + ": " + kx::systemErrorText(errorNumber), "file", errorNumber);
}

inline ExitCode exitCodeOf(const std::exception& error)
{
    if (dynamic_cast<const kx::CInvalidArgError*>(&error))
        return exitWrongUsage;
    if (const auto* const known = dynamic_cast<const kx::CError*>(&error)) {
        if (known->getDomain() == "usage")
            return exitWrongUsage;
        return known->getDomain() == "file" ? exitLocalFile : exitFailed;
    }
    return dynamic_cast<const std::system_error*>(&error) ? exitLocalFile : exitFailed;
}

/// Without the name of the function that refuses an argument, which says nothing to people.
inline kx::String withoutFunctionName(const kx::String& message)
{
    const kx::String behindIt = "': ";
    const size_t start = message.find(behindIt);
    return start == kx::String::npos ? message : message.substr(start + behindIt.size());
}

/// Writes the error to standard error, what a server said in lines of its own.
/// @return the code that the program ends with
inline ExitCode tellError(const std::string& program, const std::exception& error)
{
    const auto* const known = dynamic_cast<const kx::CError*>(&error);
    kx::String message
        = known ? known->getMessage() : kx::TPathImpl<kx::CUnixPathTraits>::fromBytes(error.what()).toString();
    if (dynamic_cast<const kx::CInvalidArgError*>(&error))
        message = withoutFunctionName(message);
    std::string lines;
    for (size_t start = 0; start <= message.size();) {
        const size_t end = std::min(message.find(L'\n', start), message.size());
        lines += (start == 0 ? program + ": " : "  ") + printable(message.substr(start, end - start)) + '\n';
        start = end + 1;
    }
    const ExitCode code = exitCodeOf(error);
    if (code == exitWrongUsage)
        lines += "Try '" + program + " --help'.\n";
    std::cerr << lines;
    return code;
}
