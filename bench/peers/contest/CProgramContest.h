#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What a program has taken.
struct CUse {
    double wall = 0;   ///< seconds
    double cpu = 0;    ///< seconds, of all its threads
    double memory = 0; ///< MiB at most
};

/// One thing that a program does.
struct CProgramStep {
    std::string title; ///< of its table; empty where it is done and not shown
    std::vector<std::string> command;
    std::function<void(const std::string& output)> check; ///< throws where it was not done
    std::vector<CUse> uses = {};                          ///< of each round
};

/// Who does the same as others, step by step.
struct CProgramContender {
    std::string name;
    std::vector<CProgramStep> steps;
};

/// Programs that do the same, in turns.
class CProgramContest {
public:
    /// @param log a file that is overwritten
    /// @param environment of all programs, "NAME=value"
    CProgramContest(std::filesystem::path log, std::vector<std::string> environment);

    /// Runs all of them once to get warm, and then so many times; each round another one begins.
    /// @throws std::runtime_error naming the command that has failed, with what it wrote
    void run(std::vector<CProgramContender>& contenders, int rounds) const;

private:
    CUse perform(const CProgramStep& step) const;

    const std::filesystem::path m_log;
    const std::vector<std::string> m_environment;
};

/// Of the rounds.
double medianOf(const CProgramStep& step, double CUse::*member);

/// A table for each title, in Markdown: medians, least and most, and the medians of the rounds' ratios beside the first
/// contender that has the step.
void printProgramTables(const std::vector<CProgramContender>& contenders);

} // namespace bench
