#include "tools/scope/TopicFeed.h"

#include <iostream>

namespace lumo::scope {

namespace {

/// A bucket of source time per chart point pair: at most 200 points a second
/// per field, however fast the topic.
constexpr double bucketSeconds = 0.01;
/// Arrays are drawn as their latest vector; twenty a second look live.
constexpr auto vectorInterval = std::chrono::milliseconds(50);
/// How long the thread waits for a sample before it passes on what is due.
constexpr auto idleWait = std::chrono::milliseconds(10);

}  // namespace

TopicFeed::TopicFeed(std::size_t index, std::string topic, std::string uri,
                     std::unique_ptr<google::protobuf::Message> prototype, std::uint32_t typeHash,
                     std::unique_ptr<lumotypes::host::WireTap> tap)
    : index(index),
      topicName(std::move(topic)),
      topicUri(std::move(uri)),
      message(std::move(prototype)),
      typeHash(typeHash),
      tap(std::move(tap)),
      plotFields(plotFieldsOf(*message->GetDescriptor())) {}

TopicFeed::~TopicFeed() { stop(); }

std::string TopicFeed::fieldId(std::size_t field) const {
    return std::to_string(index) + "/" + plotFields.at(field).path;
}

int TopicFeed::fieldOf(const std::string& path) const {
    for (std::size_t i = 0; i < plotFields.size(); ++i) {
        if (plotFields[i].path == path) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void TopicFeed::watch(const std::shared_ptr<Viewer>& viewer, const std::vector<std::size_t>& fields) {
    std::vector<Watch> watches;
    for (const std::size_t field : fields) {
        watches.push_back(Watch{field, fieldId(field), MinMaxDecimator(bucketSeconds), LatestVector(vectorInterval)});
    }
    std::lock_guard<std::mutex> lock(watchMutex);
    for (auto it = watchers.begin(); it != watchers.end(); ++it) {
        if (it->viewer == viewer) {
            watchers.erase(it);
            break;
        }
    }
    if (!watches.empty()) {
        watchers.push_back(Watcher{viewer, std::move(watches)});
    }
}

FeedCounts TopicFeed::counts() const {
    std::lock_guard<std::mutex> lock(countMutex);
    return totals;
}

void TopicFeed::start() {
    lastSecond = Clock::now();
    thread = std::thread([this] { run(); });
}

void TopicFeed::stop() {
    if (!thread.joinable()) {
        return;
    }
    stopping = true;
    thread.join();
    tap->close();
}

void TopicFeed::run() {
    lumotypes::host::WireSample sample;
    while (!stopping) {
        const bool got = tap->next(sample, idleWait);
        const auto now = Clock::now();
        if (got) {
            take(sample, now);
        }
        passDue(now);
        measureRate(now);
    }
}

void TopicFeed::count(std::uint32_t sampleSequence) {
    std::lock_guard<std::mutex> lock(countMutex);
    ++totals.samples;
    if (!seenAny) {
        totals.firstSequence = sampleSequence;
    } else if (sampleSequence != totals.lastSequence + 1) {
        ++totals.gaps;
        if (sampleSequence > totals.lastSequence) {
            totals.missing += sampleSequence - totals.lastSequence - 1;
        }
    }
    seenAny = true;
    totals.lastSequence = sampleSequence;
}

void TopicFeed::take(const lumotypes::host::WireSample& sample, Clock::time_point now) {
    if (sample.dataEntityTypeHash != typeHash) {
        std::lock_guard<std::mutex> lock(countMutex);
        ++totals.refused;
        return;
    }
    count(sample.sampleSequence);
    std::lock_guard<std::mutex> lock(watchMutex);
    if (watchers.empty()) {
        return;
    }
    if (!message->ParseFromString(sample.payload)) {
        std::lock_guard<std::mutex> countLock(countMutex);
        ++totals.refused;
        return;
    }
    std::vector<PlotPoint> points;
    std::vector<double> values;
    for (auto& watcher : watchers) {
        for (auto& watch : watcher.watches) {
            const PlotField& field = plotFields[watch.field];
            if (field.array) {
                arrayValues(*message, field, values);
                watch.vector.add(sample.sourceTimestamp, values);
                continue;
            }
            points.clear();
            watch.points.add(sample.sourceTimestamp, scalarValue(*message, field), now, points);
            if (!points.empty()) {
                watcher.viewer->offerPoints(watch.id, points);
            }
        }
    }
}

void TopicFeed::passDue(Clock::time_point now) {
    std::vector<PlotPoint> points;
    std::vector<double> values;
    double time = 0;
    std::lock_guard<std::mutex> lock(watchMutex);
    for (auto& watcher : watchers) {
        for (auto& watch : watcher.watches) {
            points.clear();
            watch.points.closeIfDue(now, points);
            if (!points.empty()) {
                watcher.viewer->offerPoints(watch.id, points);
            }
            if (watch.vector.takeIfDue(now, time, values)) {
                watcher.viewer->offerVector(watch.id, time, values);
            }
        }
    }
}

void TopicFeed::measureRate(Clock::time_point now) {
    const auto elapsed = now - lastSecond;
    if (elapsed < std::chrono::seconds(1)) {
        return;
    }
    std::lock_guard<std::mutex> lock(countMutex);
    totals.rate = static_cast<double>(totals.samples - samplesAtLastSecond) /
                  std::chrono::duration<double>(elapsed).count();
    samplesAtLastSecond = totals.samples;
    lastSecond = now;
}

}  // namespace lumo::scope
