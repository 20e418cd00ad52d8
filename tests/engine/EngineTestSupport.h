#pragma once

// A view into the engine's core for the tests, and helpers that build
// samples and stand in for the transport's delivering thread.
#include <cstddef>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "EngineTestTopics.h"
#include "dabo/ps/qos/QoS.h"
#include "dabo/ps/queue/QueuedSubscriberImpl_impl.h"
#include "dabo/util/DaboUtil.h"

namespace engine_test {

using QosList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;

/// The core with its state opened up for inspection. Every accessor takes the
/// lock that guards what it reads.
template <typename T, typename ST>
class InspectableCore : public orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<T, ST> {
    using Base = orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<T, ST>;

public:
    explicit InspectableCore(const QosList& qos = {}) : Base(qos) {}

    static std::shared_ptr<InspectableCore> make(const QosList& qos = {}) {
        return std::make_shared<InspectableCore>(qos);
    }

    long latencyMs() const { return this->latency; }
    long deadlineMs() const { return this->deadline; }
    long windowMs() const { return this->deadlineWindow; }

    std::size_t queuedCount() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->events.size();
    }
    std::size_t instanceCount() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->instances.size();
    }
    std::size_t predicateCount() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->predicates.size();
    }
    std::size_t subscriptionCount() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->subscriptions.size();
    }
    long lastSourceTime() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->lastSourceTimeMs;
    }
    long subscriberExpiry() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return this->deadlineExpiry;
    }
    /// The queued event at `index` of the global list, still linked.
    std::shared_ptr<orlo::dabo::ps::DataEvent<T>> queuedEvent(std::size_t index) {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        auto it = this->events.begin();
        std::advance(it, static_cast<long>(index));
        return *it;
    }
    /// The instance queue whose key equals `key`, or null.
    std::shared_ptr<orlo::dabo::ps::queue::InstanceQueue<T, ST>> instanceQueue(const T& key) {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        auto found = this->instances.find(key.clone());
        return found == this->instances.end() ? nullptr : found->second;
    }
    void limitQueue(unsigned long maxEvents) {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        this->maxQueuedEvents = maxEvents;
    }
    void limitInstances(int maxEvents) {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        this->maxEventsPerInstance = maxEvents;
    }
    /// Registers `predicate` under an id of the test's choosing, as
    /// subscribeAsync would with a random one.
    void registerPredicate(const std::string& id,
                           std::shared_ptr<orlo::dabo::ps::queue::detail::DataEventPredicate<T, ST>> predicate) {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        this->predicates.emplace(id, std::move(predicate));
    }
    /// Whether the first predicate in id order is of class `P`.
    template <typename P>
    bool firstPredicateIs() {
        std::lock_guard<std::mutex> lock(this->queueMutex);
        return !this->predicates.empty() && dynamic_cast<P*>(this->predicates.begin()->second.get()) != nullptr;
    }
    /// Waits until `count` waiting readers or subscriptions are registered.
    void awaitPredicates(std::size_t count) {
        while (predicateCount() < count) {
            std::this_thread::yield();
        }
    }
};

using ReadingCore = InspectableCore<Reading, ReadingImpl>;
using SensorCore = InspectableCore<Sensor, SensorImpl>;

inline std::unique_ptr<Reading> reading(double value) { return std::make_unique<ReadingImpl>(value); }
inline std::unique_ptr<Sensor> sensor(int id, double value) { return std::make_unique<SensorImpl>(id, value); }

/// Seconds since the epoch of a time in milliseconds.
inline double at(long ms) { return orlo::dabo::util::timestampToDouble(ms); }

inline double valueOf(const std::shared_ptr<Reading>& sample) { return sample->getValue(); }

/// Collects what is written to std::cerr while it lives.
class CerrCapture {
public:
    CerrCapture() : previous(std::cerr.rdbuf(captured.rdbuf())) {}
    ~CerrCapture() { std::cerr.rdbuf(previous); }
    std::string text() const { return captured.str(); }

private:
    std::ostringstream captured;
    std::streambuf* previous;
};

}  // namespace engine_test
