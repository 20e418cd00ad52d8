#include "tools/demo/LatencyStats.h"

#include <algorithm>
#include <cmath>

namespace lumo::demo {

void LatencyStats::add(double seconds) {
    std::lock_guard<std::mutex> lock(mutex);
    values.push_back(seconds);
}

LatencyStats::Summary LatencyStats::summary() const {
    std::vector<double> sorted;
    {
        std::lock_guard<std::mutex> lock(mutex);
        sorted = values;
    }
    Summary result;
    result.count = sorted.size();
    if (sorted.empty()) {
        return result;
    }
    std::sort(sorted.begin(), sorted.end());
    // Nearest rank: the smallest value with at least the given share at or below it.
    const auto rank = [&](double share) {
        const auto index = static_cast<std::size_t>(std::ceil(share * static_cast<double>(sorted.size())));
        return sorted[std::min(sorted.size(), std::max<std::size_t>(index, 1)) - 1];
    };
    result.median = rank(0.5);
    result.p99 = rank(0.99);
    result.max = sorted.back();
    return result;
}

}  // namespace lumo::demo
