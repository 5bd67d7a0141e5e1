#include "bench/peers/contest/CProgramContest.h"

#include "bench/compare.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/files.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

std::vector<double> valuesOf(const CProgramStep& step, double CUse::*member)
{
    std::vector<double> values;
    for (const CUse& use : step.uses)
        values.push_back(use.*member);
    return values;
}

/// The median of the rounds.
double ratio(const CProgramStep& step, const CProgramStep& beside, double CUse::*member)
{
    std::vector<double> ratios;
    for (size_t round = 0; round < step.uses.size(); ++round)
        ratios.push_back(step.uses[round].*member / (beside.uses[round].*member));
    return median(ratios);
}

void printSeconds(const CProgramStep& step, const CProgramStep& beside, double CUse::*member)
{
    const std::vector<double> values = valuesOf(step, member);
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    std::printf(" %.3f | %.3f to %.3f | %.2f |", median(values), *least, *most, ratio(step, beside, member));
}

void printTable(const std::string& title, const std::vector<CProgramContender>& contenders)
{
    std::printf("\n| %s | wall s | least to most | ratio | CPU s | least to most | ratio | MiB |\n", title.c_str());
    std::printf("|---|---|---|---|---|---|---|---|\n");
    const CProgramStep* first = nullptr;
    for (const CProgramContender& contender : contenders) {
        for (const CProgramStep& step : contender.steps) {
            if (step.title != title)
                continue;
            first = first ? first : &step;
            std::printf("| %s |", contender.name.c_str());
            printSeconds(step, *first, &CUse::wall);
            printSeconds(step, *first, &CUse::cpu);
            std::printf(" %.1f |\n", median(valuesOf(step, &CUse::memory)));
        }
    }
}

} // namespace

CProgramContest::CProgramContest(std::filesystem::path log, std::vector<std::string> environment)
    : m_log(std::move(log))
    , m_environment(std::move(environment))
{
}

void CProgramContest::run(std::vector<CProgramContender>& contenders, int rounds) const
{
    for (int round = 0; round <= rounds; ++round) {
        std::fprintf(stderr, "round %d of %d\n", round, rounds);
        for (size_t turn = 0; turn < contenders.size(); ++turn) {
            for (CProgramStep& step : contenders[(turn + static_cast<size_t>(round)) % contenders.size()].steps) {
                const CUse use = perform(step);
                if (round > 0)
                    step.uses.push_back(use);
            }
        }
    }
}

CUse CProgramContest::perform(const CProgramStep& step) const
{
    std::vector<std::string> arguments{NORLA_PROGRAM_MEASURE, m_log};
    arguments.insert(arguments.end(), step.command.begin(), step.command.end());
    const support::CProcessRun run(
        {.arguments = arguments, .environment = m_environment, .limit = std::chrono::minutes(30)});
    const std::string output = support::readFile(m_log);
    CUse use;
    long memory = 0;
    if (run.exitStatus() != 0 || std::sscanf(run.output().c_str(), "%lf %lf %ld", &use.wall, &use.cpu, &memory) != 3) {
        std::string command;
        for (const std::string& word : step.command)
            command += word + ' ';
        throw std::runtime_error(command + "fails: " + run.errors() + output);
    }
    use.memory = static_cast<double>(memory) / 1024;
    step.check(output);
    return use;
}

double medianOf(const CProgramStep& step, double CUse::*member)
{
    return median(valuesOf(step, member));
}

void printProgramTables(const std::vector<CProgramContender>& contenders)
{
    std::vector<std::string> titles;
    for (const CProgramContender& contender : contenders) {
        for (const CProgramStep& step : contender.steps) {
            if (!step.title.empty() && std::find(titles.begin(), titles.end(), step.title) == titles.end())
                titles.push_back(step.title);
        }
    }
    for (const std::string& title : titles)
        printTable(title, contenders);
    std::fflush(stdout);
}

} // namespace bench
