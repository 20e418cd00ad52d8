#include "tools/perf/Latencies.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace lumo::perf {

double percentile(const std::vector<double>& sorted, double fraction) {
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[std::min(index, sorted.size() - 1)];
}

void writeLatencies(const std::string& path, const std::vector<double>& microseconds) {
    std::ofstream out(path);
    for (double value : microseconds) {
        out << value << "\n";
    }
    if (!out) {
        throw std::runtime_error("cannot write the latencies to '" + path + "'");
    }
}

}  // namespace lumo::perf
