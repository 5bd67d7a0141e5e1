#pragma once

#include "examples/CArguments.h"
#include "examples/exitCodes.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <unistd.h>

/// Writes to standard output. What cannot be written is an error at once, or when the program ends.
inline void print(const std::string& text)
{
    if (!(std::cout << text))
        throw fileError("standard output", errno);
}

/// A stream that the program was started without would give its number to the next file or connection, which then got
/// what is meant for the stream.
inline void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // to be used is an error
    }
}

/// What every main() does: runs the work with the command line's words, and tells what goes wrong.
/// @param work gives the exit code
/// @return the exit code of the program
inline int runProgram(const CProgram& program, int argc, char** argv, int (*work)(const CArguments&))
{
    occupyStandardStreams();
    for (const int number : {SIGPIPE, SIGXFSZ}) // a reader that has gone and a file that is full are errors of writing
        std::signal(number, SIG_IGN);
    try {
        const CArguments arguments(program, {argv + 1, argv + argc});
        int code = exitDone;
        if (arguments.asksForHelp())
            print(usageOf(program));
        else
            code = work(arguments);
        if (!std::cout.flush())
            throw fileError("standard output", errno);
        return code;
    } catch (const std::exception& error) {
        return tellError(program.name, error);
    }
}
