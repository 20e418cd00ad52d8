#pragma once

#include <chrono>
#include <vector>

namespace lumo::scope {

struct PlotPoint {
    /// The sample's source time, seconds.
    double time = 0;
    double value = 0;
};

/// Thins a field's samples to what a chart can draw while keeping its
/// extremes: samples fall into buckets of `bucketSeconds` of source time, and
/// each bucket leaves only its minimum and its maximum, in time order. A
/// bucket is closed by the first sample of another bucket, or once it has been
/// open for its width in wall time, so a slow topic is not held back.
class MinMaxDecimator {
public:
    using Clock = std::chrono::steady_clock;

    explicit MinMaxDecimator(double bucketSeconds);

    /// Adds a sample; appends the points of the bucket it closes to `out`.
    void add(double time, double value, Clock::time_point now, std::vector<PlotPoint>& out);

    /// Closes the open bucket if it has been open its width in wall time.
    void closeIfDue(Clock::time_point now, std::vector<PlotPoint>& out);

private:
    void close(std::vector<PlotPoint>& out);

    double bucketSeconds;
    Clock::duration wallWidth;
    bool open = false;
    long long bucket = 0;
    Clock::time_point openedAt;
    PlotPoint minimum;
    PlotPoint maximum;
};

/// Keeps the latest value of an array field and lets it out at most once per
/// `interval`: the page draws only the latest vector.
class LatestVector {
public:
    using Clock = std::chrono::steady_clock;

    explicit LatestVector(Clock::duration interval);

    void add(double time, const std::vector<double>& values);

    /// True, with the latest vector in `time` and `values`, if one is waiting
    /// and `interval` has passed since the last one went out.
    bool takeIfDue(Clock::time_point now, double& time, std::vector<double>& values);

private:
    Clock::duration interval;
    Clock::time_point lastOut;
    bool waiting = false;
    double latestTime = 0;
    std::vector<double> latest;
};

}  // namespace lumo::scope
