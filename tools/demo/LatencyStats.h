#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace lumo::demo {

/// Latencies in seconds, and their median, 99th percentile and maximum.
class LatencyStats {
public:
    void add(double seconds);

    struct Summary {
        std::size_t count = 0;
        double median = 0;
        double p99 = 0;
        double max = 0;
    };
    Summary summary() const;

private:
    mutable std::mutex mutex;
    std::vector<double> values;
};

}  // namespace lumo::demo
