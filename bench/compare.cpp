#include "bench/compare.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace bench {

namespace {

double secondsOn(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsOf(const std::function<void()>& work, double (*clock)())
{
    const double start = clock();
    work();
    return clock() - start;
}

} // namespace

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double threadSeconds()
{
    return secondsOn(CLOCK_THREAD_CPUTIME_ID);
}

double wallSeconds()
{
    return secondsOn(CLOCK_MONOTONIC);
}

void printHeading()
{
    std::printf("%-44s %12s %12s %7s %7s\n", "CPU time of the client unless said, median", "bare ms", "norla ms",
        "ratio", "limit");
}

bool compare(const CComparison& comparison)
{
    double (*const clock)() = comparison.clock ? comparison.clock : &threadSeconds;
    comparison.bare(); // both warm: connection, caches, allocator
    comparison.norla();
    std::vector<double> bare;
    std::vector<double> norla;
    std::vector<double> ratios;
    for (int round = 0; round < comparison.rounds; ++round) {
        // Each goes first in every other round: what one leaves behind is met by the other.
        if (round % 2 == 0)
            bare.push_back(secondsOf(comparison.bare, clock));
        norla.push_back(secondsOf(comparison.norla, clock));
        if (round % 2 != 0)
            bare.push_back(secondsOf(comparison.bare, clock));
        ratios.push_back(norla.back() / bare.back());
    }
    const double ratio = median(ratios);
    const double seconds = median(norla);
    const bool isWithin = ratio <= comparison.limit;
    const bool isEnough = seconds <= comparison.enough;
    std::printf("%-44s %12.3f %12.3f %7.3f %7.2f%s\n", comparison.name.c_str(), 1000 * median(bare), 1000 * seconds,
        ratio, comparison.limit, isWithin ? "" : (isEnough ? "  quick enough" : "  over the limit"));
    std::fflush(stdout);
    return isWithin || isEnough;
}

} // namespace bench
