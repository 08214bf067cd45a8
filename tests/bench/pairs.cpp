#include "pairs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace bench {

double median(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void pairs::add(double ours, double limit)
{
    ours_.push_back(ours);
    limit_.push_back(limit);
    ratio_.push_back(limit > 0 ? ours / limit : 0);
}

void pairs::print(const std::string &name) const
{
    std::printf("%s %.2f %.2f %.3f\n", name.c_str(), median(ours_), median(limit_), median(ratio_));
    std::fflush(stdout);
}

void give_up(const std::string &why)
{
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    std::exit(1);
}

} // namespace bench
