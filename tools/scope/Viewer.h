#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tools/scope/Decimator.h"

namespace lumo::scope {

/// What is waiting to go to one browser: points of the fields it watches and
/// the latest vector of each array it watches. Filled by the subscribers'
/// threads, emptied by the server's; the subscribers never wait on it
/// beyond a short lock: past `pointLimit` waiting points, new ones are
/// dropped and counted, so a slow or vanished browser costs only itself.
class Viewer {
public:
    explicit Viewer(std::size_t pointLimit);

    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    void offerPoints(const std::string& fieldId, const std::vector<PlotPoint>& points);
    void offerVector(const std::string& fieldId, double time, const std::vector<double>& values);

    /// The waiting points and vectors as one JSON message, {"points":...,
    /// "vectors":...}, emptying the box; empty if nothing waits.
    std::string takeBatch();

    /// Points dropped because the box was full.
    unsigned long dropped() const;

private:
    struct Series {
        std::vector<double> times;
        std::vector<double> values;
    };
    struct Vector {
        double time = 0;
        std::vector<double> values;
    };

    const std::size_t pointLimit;
    mutable std::mutex mutex;
    std::map<std::string, Series> points;
    std::map<std::string, Vector> vectors;
    std::size_t waitingPoints = 0;
    unsigned long droppedPoints = 0;
};

}  // namespace lumo::scope
