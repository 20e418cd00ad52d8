#pragma once

#include <string>
#include <vector>

namespace lumo::perf {

/// The value at `fraction` (0 .. 1) of `sorted`, by nearest rank; `sorted` is not empty.
double percentile(const std::vector<double>& sorted, double fraction);

/// Writes `microseconds` to `path`, one a line, in the order measured.
void writeLatencies(const std::string& path, const std::vector<double>& microseconds);

}  // namespace lumo::perf
