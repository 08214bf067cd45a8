/*
 * Figures of runs that alternate: ours and its limit (or peer) are measured in turns, so that what else the
 * machine does meets both alike. A figure is a line "NAME OURS LIMIT RATIO" on standard output: medians in
 * microseconds, and the median of the ratios of neighbours.
 */
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace bench {

template <typename Work> double microseconds(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values); // 0 of none

class pairs {
public:
    void add(double ours, double limit);
    void print(const std::string &name) const;

private:
    std::vector<double> ours_, limit_, ratio_;
};

// Says why on standard error and ends with status 1.
[[noreturn]] void give_up(const std::string &why);

} // namespace bench
