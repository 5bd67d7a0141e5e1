#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What some work has taken, in seconds.
struct CCost {
    double cpu = 0;
    double wall = 0;
};

/// One of those that do the same work.
struct CContender {
    std::string name;
    std::function<CCost()> run;
    std::vector<CCost> costs = {}; ///< of each round
};

/// Runs the work and measures it, with all threads of this process.
CCost processCost(const std::function<void()>& work);

/// Lets each of them run once to get warm (connections, caches), and then so many times, in turns: a machine that is
/// slow for a while is slow for all. Each round another one begins.
void runInTurns(std::vector<CContender>& contenders, int rounds);

/// The median of the rounds' ratios of CPU time.
double cpuRatio(const CContender& contender, const CContender& beside);

/// A table of them: median and least CPU time of a transfer, the median of the ratios beside the first contender, the
/// median of wall clock, and how many transfers a second that makes.
void printTurnsHeading(const char* what);

/// @param what stands in the first column
/// @param transfers of one run
/// @param remark is printed at the end of the line
void printTurnsRow(const std::string& what, const CContender& contender, const CContender& beside, int transfers,
    const char* remark = "");

} // namespace bench
