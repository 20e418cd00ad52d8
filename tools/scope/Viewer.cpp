#include "tools/scope/Viewer.h"

#include "tools/scope/Json.h"

namespace lumo::scope {

namespace {

void appendNumbers(std::string& out, const std::vector<double>& values) {
    out += '[';
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i != 0) {
            out += ',';
        }
        appendJsonNumber(out, values[i]);
    }
    out += ']';
}

/// `{"ID":VALUE,...}` with each value written by `write`.
template <typename Map, typename Write>
void appendById(std::string& out, const Map& values, Write write) {
    out += '{';
    bool first = true;
    for (const auto& [id, value] : values) {
        out += first ? "" : ",";
        first = false;
        appendJsonString(out, id);
        out += ':';
        write(out, value);
    }
    out += '}';
}

}  // namespace

Viewer::Viewer(std::size_t pointLimit) : pointLimit(pointLimit) {}

void Viewer::offerPoints(const std::string& fieldId, const std::vector<PlotPoint>& offered) {
    std::lock_guard<std::mutex> lock(mutex);
    Series* series = nullptr;
    for (const auto& point : offered) {
        if (waitingPoints >= pointLimit) {
            ++droppedPoints;
            continue;
        }
        if (series == nullptr) {
            series = &points[fieldId];
        }
        series->times.push_back(point.time);
        series->values.push_back(point.value);
        ++waitingPoints;
    }
}

void Viewer::offerVector(const std::string& fieldId, double time, const std::vector<double>& values) {
    std::lock_guard<std::mutex> lock(mutex);
    auto& latest = vectors[fieldId];
    latest.time = time;
    latest.values = values;
}

std::string Viewer::takeBatch() {
    std::map<std::string, Series> takenPoints;
    std::map<std::string, Vector> takenVectors;
    {
        std::lock_guard<std::mutex> lock(mutex);
        takenPoints.swap(points);
        takenVectors.swap(vectors);
        waitingPoints = 0;
    }
    if (takenPoints.empty() && takenVectors.empty()) {
        return "";
    }
    std::string out = "{\"points\":";
    appendById(out, takenPoints, [](std::string& json, const Series& series) {
        json += '[';
        appendNumbers(json, series.times);
        json += ',';
        appendNumbers(json, series.values);
        json += ']';
    });
    out += ",\"vectors\":";
    appendById(out, takenVectors, [](std::string& json, const Vector& vector) {
        json += "{\"t\":";
        appendJsonNumber(json, vector.time);
        json += ",\"v\":";
        appendNumbers(json, vector.values);
        json += '}';
    });
    out += '}';
    return out;
}

unsigned long Viewer::dropped() const {
    std::lock_guard<std::mutex> lock(mutex);
    return droppedPoints;
}

}  // namespace lumo::scope
