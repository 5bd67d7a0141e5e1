#pragma once

#include "examples/CArguments.h"

#include <algorithm>
#include <string>
#include <vector>

/// A command of a program that has several, as its --help shows it. TCommands is the class that carries them out.
template <typename TCommands>
struct TCommand {
    std::string name;
    std::vector<std::string> operands; ///< as CProgram::operands
    std::string help;                  ///< what it does, in a few words
    void (TCommands::*run)(const std::vector<std::string>& operands);
};

/// For the program's --help.
template <typename TCommands>
std::string helpOf(const std::vector<TCommand<TCommands>>& commands)
{
    std::vector<std::string> uses;
    size_t width = 0;
    for (const auto& command : commands) {
        std::string use = command.name;
        for (const std::string& operand : command.operands)
            use += ' ' + operand;
        width = std::max(width, use.size());
        uses.push_back(use);
    }
    std::string text;
    for (size_t i = 0; i < uses.size(); ++i)
        text += "  " + uses[i] + std::string(width + 2 - uses[i].size(), ' ') + commands[i].help + '\n';
    return text;
}

/// @param words the command's name and its operands
/// @throws as usageError() when there is no such command, or too few or too many operands
template <typename TCommands>
const TCommand<TCommands>& commandOf(
    const std::vector<TCommand<TCommands>>& commands, const std::vector<std::string>& words)
{
    const auto command = std::find_if(
        commands.begin(), commands.end(), [&](const auto& candidate) { return candidate.name == words.front(); });
    if (command == commands.end())
        throw usageError("unknown command '" + shownPath(words.front()) + "'");
    CArguments::requireOperands(command->operands, {words.begin() + 1, words.end()});
    return *command;
}
