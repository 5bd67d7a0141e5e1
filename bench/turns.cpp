#include "bench/turns.h"

#include "bench/compare.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace bench {

namespace {

double processSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::vector<double> valuesOf(const CContender& contender, double CCost::*member)
{
    std::vector<double> values;
    for (const CCost& cost : contender.costs)
        values.push_back(cost.*member);
    return values;
}

} // namespace

CCost processCost(const std::function<void()>& work)
{
    const double cpu = processSeconds();
    const double wall = wallSeconds();
    work();
    return {processSeconds() - cpu, wallSeconds() - wall};
}

void runInTurns(std::vector<CContender>& contenders, int rounds)
{
    for (CContender& contender : contenders)
        contender.run();
    for (int round = 0; round < rounds; ++round) {
        for (size_t turn = 0; turn < contenders.size(); ++turn) {
            CContender& contender = contenders[(turn + static_cast<size_t>(round)) % contenders.size()];
            contender.costs.push_back(contender.run());
        }
    }
}

double cpuRatio(const CContender& contender, const CContender& beside)
{
    std::vector<double> ratios;
    for (size_t round = 0; round < contender.costs.size(); ++round)
        ratios.push_back(contender.costs[round].cpu / beside.costs[round].cpu);
    return median(ratios);
}

void printTurnsHeading(const char* what)
{
    std::printf("%-22s %-14s %10s %10s %7s %10s %10s\n", what, "by", "CPU us", "least", "ratio", "wall us", "a second");
}

void printTurnsRow(
    const std::string& what, const CContender& contender, const CContender& beside, int transfers, const char* remark)
{
    const std::vector<double> cpu = valuesOf(contender, &CCost::cpu);
    const double wall = median(valuesOf(contender, &CCost::wall));
    std::printf("%-22s %-14s %10.1f %10.1f %7.3f %10.1f %10.0f%s\n", what.c_str(), contender.name.c_str(),
        median(cpu) / transfers * 1e6, *std::min_element(cpu.begin(), cpu.end()) / transfers * 1e6,
        cpuRatio(contender, beside), wall / transfers * 1e6, transfers / wall, remark);
    std::fflush(stdout);
}

} // namespace bench
