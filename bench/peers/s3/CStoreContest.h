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
struct CStoreStep {
    std::string title; ///< of its table; empty where it is done and not shown
    std::vector<std::string> command;
    std::function<void(const std::string& output)> check; ///< throws where it was not done
    std::vector<CUse> uses = {};                          ///< of each round
};

/// Who does the same as others, step by step.
struct CStoreContender {
    std::string name;
    std::vector<CStoreStep> steps;
};

/// Programs that do the same with a store, in turns.
class CStoreContest {
public:
    /// @param measure the program that runs the others
    /// @param log a file that is overwritten
    /// @param environment of all programs, "NAME=value"
    CStoreContest(std::string measure, std::filesystem::path log, std::vector<std::string> environment);

    /// Runs all of them once to get warm, and then so many times; each round another one begins.
    /// @throws std::runtime_error naming the command that has failed, with what it wrote
    void run(std::vector<CStoreContender>& contenders, int rounds) const;

private:
    CUse perform(const CStoreStep& step) const;

    const std::string m_measure;
    const std::filesystem::path m_log;
    const std::vector<std::string> m_environment;
};

/// A table for each title, in Markdown: medians, least and most, and the medians of the rounds' ratios beside the first
/// contender that has the step.
void printStoreTables(const std::vector<CStoreContender>& contenders);

} // namespace bench
