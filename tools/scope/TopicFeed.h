#pragma once

#include <google/protobuf/message.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lumotypes/host/WireTap.h"
#include "tools/scope/Decimator.h"
#include "tools/scope/FieldCatalog.h"
#include "tools/scope/Viewer.h"

namespace lumo::scope {

/// What a subscription has received so far.
struct FeedCounts {
    unsigned long samples = 0;
    /// Jumps in the header's sampleSequence, and the samples they skipped.
    unsigned long gaps = 0;
    unsigned long missing = 0;
    /// The sampleSequence of the first and the latest sample: with no gaps,
    /// every sample from the first on was received.
    std::uint32_t firstSequence = 0;
    std::uint32_t lastSequence = 0;
    /// Samples whose header names another type, or whose payload does not parse.
    unsigned long refused = 0;
    /// Samples per second over the last whole second.
    double rate = 0;
};

/// One subscription of the scope: its own thread takes the samples off the
/// wire, counts them, and hands the fields that viewers watch, thinned, to
/// those viewers' boxes. Nothing here waits on a viewer.
class TopicFeed {
public:
    using Clock = std::chrono::steady_clock;

    /// `prototype` is an empty message of the topic's type, `typeHash` what
    /// the topic's publishers put in the header.
    TopicFeed(std::size_t index, std::string topic, std::string uri, std::unique_ptr<google::protobuf::Message> prototype,
              std::uint32_t typeHash, std::unique_ptr<lumotypes::host::WireTap> tap);
    ~TopicFeed();

    TopicFeed(const TopicFeed&) = delete;
    TopicFeed& operator=(const TopicFeed&) = delete;

    const std::string& topic() const { return topicName; }
    const std::string& uri() const { return topicUri; }
    const std::vector<PlotField>& fields() const { return plotFields; }

    /// "INDEX/PATH": the name a viewer asks for a field by.
    std::string fieldId(std::size_t field) const;

    /// The field of `path`, or -1 if the topic has none.
    int fieldOf(const std::string& path) const;

    /// From now on `viewer` gets `fields` (indices into fields()), replacing
    /// what it watched here before; an empty list forgets it.
    void watch(const std::shared_ptr<Viewer>& viewer, const std::vector<std::size_t>& fields);

    FeedCounts counts() const;

    void start();

    /// Stops the thread and unsubscribes.
    void stop();

private:
    struct Watch {
        std::size_t field;
        std::string id;
        MinMaxDecimator points;
        LatestVector vector;
    };
    struct Watcher {
        std::shared_ptr<Viewer> viewer;
        std::vector<Watch> watches;
    };

    void run();
    void take(const lumotypes::host::WireSample& sample, Clock::time_point now);
    void count(std::uint32_t sampleSequence);
    void passDue(Clock::time_point now);
    void measureRate(Clock::time_point now);

    const std::size_t index;
    const std::string topicName;
    const std::string topicUri;
    std::unique_ptr<google::protobuf::Message> message;
    const std::uint32_t typeHash;
    std::unique_ptr<lumotypes::host::WireTap> tap;
    const std::vector<PlotField> plotFields;

    std::mutex watchMutex;
    std::vector<Watcher> watchers;

    mutable std::mutex countMutex;
    FeedCounts totals;
    bool seenAny = false;
    unsigned long samplesAtLastSecond = 0;
    Clock::time_point lastSecond;

    std::atomic<bool> stopping{false};
    std::thread thread;
};

}  // namespace lumo::scope
