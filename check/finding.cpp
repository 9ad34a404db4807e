#include "check/finding.h"

#include <numeric>
#include <utility>

namespace tarsil::check {

void finding_list::add(finding found)
{
    int64_t& seen = of_invariant[static_cast<size_t>(found.broken)];
    ++seen;
    ++of_severity[static_cast<size_t>(found.how_bad)];
    if (seen <= kept_of_each) kept.push_back(std::move(found));
}

int64_t finding_list::total() const
{
    return std::accumulate(of_severity.begin(), of_severity.end(), int64_t{0});
}

} // namespace tarsil::check
