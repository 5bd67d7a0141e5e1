#pragma once

#include "examples/exitCodes.h"
#include "examples/text.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// An option of a program, as its --help shows it.
struct COption {
    std::string name;        ///< with its dashes: "--output"
    std::string value;       ///< what --help calls its value, such as "FILE"; empty for an option without one
    std::string help;        ///< what it does, in a few words
    bool isRepeated = false; ///< whether it may be given several times
    bool mayBeEmpty = false; ///< whether its value may be; other empty ones are a script's variable that was never set
};

/// What a program takes, as its --help shows it.
struct CProgram {
    std::string name;
    std::vector<std::string> operands; ///< such as "URL"; the last may be given several times when it ends in "...",
                                       ///< and be missing when it begins with "["
    std::string purpose;               ///< whole lines
    std::vector<COption> options;
    std::string notes = {}; ///< whole lines, shown below the options
};

/// The words of a command line, told apart by the options of the program. "--name VALUE" and "--name=VALUE" are the
/// same; options may stand anywhere; behind "--" there are none; "--help" and "-h" end it.
class CArguments {
public:
    /// @throws as usageError(), naming the word
    CArguments(const CProgram& program, const std::vector<std::string>& words)
        : m_program(program)
    {
        for (size_t next = 0; next < words.size() && !m_asksForHelp;) {
            const std::string& word = words[next++];
            if (word == "--") {
                m_operands.insert(m_operands.end(), words.begin() + static_cast<std::ptrdiff_t>(next), words.end());
                break;
            }
            if (word.size() < 2 || word[0] != '-')
                m_operands.push_back(word); // "-" alone is a word like others
            else if (word == "-h" || word == "--help")
                m_asksForHelp = true;
            else if (takeOption(word, next < words.size() ? &words[next] : nullptr))
                ++next;
        }
        if (!m_asksForHelp)
            requireOperands(program.operands, m_operands);
    }

    bool asksForHelp() const { return m_asksForHelp; }

    bool has(const std::string& option) const { return m_values.contains(option); }

    /// Empty when the option was not given.
    std::string value(const std::string& option) const { return has(option) ? m_values.at(option).back() : ""; }
    kx::String text(const std::string& option) const { return asText(option, value(option)); }

    /// Of an option that may be repeated, in their order.
    std::vector<std::string> values(const std::string& option) const
    {
        return has(option) ? m_values.at(option) : std::vector<std::string>();
    }
    kx::TArray<kx::String> texts(const std::string& option) const
    {
        kx::TArray<kx::String> all;
        for (const std::string& bytes : values(option))
            all.push_back(asText(option, bytes));
        return all;
    }

    /// A whole number.
    /// @param usual where the option is not given
    long long number(const std::string& option, long long least, long long most, long long usual) const
    {
        const kx::String name = "the value of " + shownPath(option);
        return has(option) ? numberOf(text(option), name, least, most) : usual;
    }

    /// What is no option: as many words as the program has operands, at least, but for one that may be missing.
    const std::vector<std::string>& operands() const { return m_operands; }

    /// @param names as CProgram::operands
    /// @throws as usageError() when there are more or fewer words than that
    static void requireOperands(const std::vector<std::string>& names, const std::vector<std::string>& words)
    {
        if (words.size() < names.size() && !names[words.size()].starts_with('['))
            throw usageError(shownPath(withoutDots(names[words.size()])) + " is missing");
        if (words.size() > names.size() && (names.empty() || !names.back().ends_with("...")))
            throw usageError("too many words: '" + shownPath(words[names.size()]) + "'");
    }

private:
    static std::string withoutDots(const std::string& operand)
    {
        return operand.ends_with("...") ? operand.substr(0, operand.size() - 3) : operand;
    }

    static kx::String asText(const std::string& option, const std::string& bytes)
    {
        return textOf(bytes, "the value of " + shownPath(option));
    }

    /// @param following the word behind it, null at the end
    /// @return whether that is its value
    bool takeOption(const std::string& word, const std::string* following)
    {
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const auto option = std::find_if(m_program.options.begin(), m_program.options.end(),
            [&](const COption& candidate) { return candidate.name == name; });
        const kx::String shown = "option '" + shownPath(name) + "'";
        if (option == m_program.options.end())
            throw usageError("unknown " + shown);
        if (has(name) && !option->isRepeated)
            throw usageError(shown + " is given more than once");
        const bool hasOwnValue = equals != std::string::npos;
        const bool wantsValue = !option->value.empty();
        if (hasOwnValue && !wantsValue)
            throw usageError(shown + " takes no value");
        const bool takesFollowing = wantsValue && !hasOwnValue;
        std::string value = hasOwnValue ? word.substr(equals + 1) : "";
        if (takesFollowing && following)
            value = *following;
        const bool isMissing = takesFollowing && !following;
        if (isMissing || (wantsValue && value.empty() && !option->mayBeEmpty))
            throw usageError(shown + " needs a value: " + shownPath(option->value));
        m_values[name].push_back(std::move(value));
        return takesFollowing;
    }

    const CProgram& m_program;
    std::map<std::string, std::vector<std::string>> m_values;
    std::vector<std::string> m_operands;
    bool m_asksForHelp = false;
};

/// What --help prints.
inline std::string usageOf(const CProgram& program)
{
    std::string text = "Usage: " + program.name + (program.options.empty() ? "" : " [options]");
    for (const std::string& operand : program.operands)
        text += ' ' + operand;
    text += '\n' + program.purpose + '\n';
    std::vector<std::pair<std::string, std::string>> rows;
    for (const COption& option : program.options)
        rows.emplace_back(option.name + (option.value.empty() ? "" : ' ' + option.value),
            option.help + (option.isRepeated ? "; may be repeated" : ""));
    rows.emplace_back("-h, --help", "show this help");
    size_t width = 0;
    for (const auto& row : rows)
        width = std::max(width, row.first.size());
    for (const auto& [left, right] : rows)
        text.append("  ").append(left).append(width + 2 - left.size(), ' ').append(right).append("\n");
    return text + (program.notes.empty() ? "" : '\n' + program.notes) + '\n' + exitCodesHelp;
}
