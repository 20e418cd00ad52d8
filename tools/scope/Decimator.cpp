#include "tools/scope/Decimator.h"

#include <cassert>
#include <cmath>

namespace lumo::scope {

MinMaxDecimator::MinMaxDecimator(double bucketSeconds)
    : bucketSeconds(bucketSeconds),
      wallWidth(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bucketSeconds))) {
    assert(bucketSeconds > 0);
}

void MinMaxDecimator::add(double time, double value, Clock::time_point now, std::vector<PlotPoint>& out) {
    const auto index = static_cast<long long>(std::floor(time / bucketSeconds));
    if (open && index != bucket) {
        close(out);
    }
    if (!open) {
        open = true;
        bucket = index;
        openedAt = now;
        minimum = maximum = PlotPoint{time, value};
        return;
    }
    // NaN compares false both ways: it never displaces a number.
    if (value < minimum.value) {
        minimum = PlotPoint{time, value};
    }
    if (value > maximum.value) {
        maximum = PlotPoint{time, value};
    }
}

void MinMaxDecimator::closeIfDue(Clock::time_point now, std::vector<PlotPoint>& out) {
    if (open && now - openedAt >= wallWidth) {
        close(out);
    }
}

void MinMaxDecimator::close(std::vector<PlotPoint>& out) {
    const bool same = minimum.time == maximum.time && (minimum.value == maximum.value ||
                                                       (std::isnan(minimum.value) && std::isnan(maximum.value)));
    if (same) {
        out.push_back(minimum);
    } else if (minimum.time <= maximum.time) {
        out.push_back(minimum);
        out.push_back(maximum);
    } else {
        out.push_back(maximum);
        out.push_back(minimum);
    }
    open = false;
}

LatestVector::LatestVector(Clock::duration interval) : interval(interval) {}

void LatestVector::add(double time, const std::vector<double>& values) {
    latestTime = time;
    latest = values;
    waiting = true;
}

bool LatestVector::takeIfDue(Clock::time_point now, double& time, std::vector<double>& values) {
    if (!waiting || now - lastOut < interval) {
        return false;
    }
    time = latestTime;
    values = latest;
    waiting = false;
    lastOut = now;
    return true;
}

}  // namespace lumo::scope
