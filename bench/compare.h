#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// One row of the table: the library beside bare libcurl at the same work.
struct CComparison {
    std::string name;
    double limit;                ///< the highest ratio of times that is good enough
    int rounds;                  ///< how often each side runs, in turns
    std::function<void()> bare;  ///< the work with libcurl alone
    std::function<void()> norla; ///< the same work with the library
    double (*clock)() = nullptr; ///< what is measured; null for threadSeconds()
    double enough = 0;           ///< seconds of the library's side that are good enough whatever the ratio; 0: none
};

/// Runs both sides in turns on this thread and prints a row: the median of each side, the median of the rounds' ratios
/// (a machine that is slow for a while is slow for both sides of a round) and the limit.
/// @return whether the ratio is within the limit, or the library's side took no longer than is enough
bool compare(const CComparison& comparison);

/// CPU time that this thread has used, in seconds.
double threadSeconds();

/// Time on the wall, in seconds from some start.
double wallSeconds();

/// The middle one of the values, of which there is at least one.
double median(std::vector<double> values);

void printHeading();

} // namespace bench
