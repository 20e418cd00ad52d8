#pragma once

// Reads a queued subscriber of the soak topic on a thread of its own and
// accounts for every sample_id: each one is received once, in order, or
// counted as lost.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <climits>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "SoakTopic.h"
#include "dabo/ps/DataEvent.h"
#include "dabo/ps/DataEventFilter.h"

namespace lumo::soak {

struct SequenceAccount {
    unsigned long received = 0;
    /// Ids skipped over: sent but never received.
    unsigned long lost = 0;
    /// Ids received again or out of order; never expected.
    unsigned long disordered = 0;
    bool any = false;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    /// Samples received with an id of at least `countFrom`.
    std::uint32_t countFrom = UINT32_MAX;
    unsigned long countedFrom = 0;

    void take(std::uint32_t id) {
        if (!any) {
            any = true;
            first = id;
        } else if (id <= last) {
            ++disordered;
            return;
        } else {
            lost += id - last - 1;
        }
        last = id;
        ++received;
        if (id >= countFrom) {
            ++countedFrom;
        }
    }
};

class SequenceReader {
public:
    explicit SequenceReader(orlo::dabo::ps::Subscriber<Sample>& subscriber)
        : subscriber(subscriber), thread([this] { run(); }) {}

    ~SequenceReader() { stop(); }

    /// Ends the reading; waiters return at once.
    void stop() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        changed.notify_all();
        if (thread.joinable()) {
            thread.join();
        }
    }

    /// Waits until `id` (or a later one) has been received.
    bool awaitId(std::uint32_t id, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return account.any && account.last >= id; });
    }

    /// Waits until any sample has been received after `count` samples.
    bool awaitMoreThan(unsigned long count, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return stopping || account.received > count; }) && !stopping;
    }

    /// From now on, counts the samples with an id of at least `id` apart.
    void countFrom(std::uint32_t id) {
        std::lock_guard<std::mutex> lock(mutex);
        account.countFrom = id;
    }

    SequenceAccount snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return account;
    }

private:
    void run() {
        const orlo::dabo::ps::DataEventFilter<Sample> everything;
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<Sample>>> events;
        while (!stopping) {
            events.clear();
            subscriber.readDataEvents(everything, events, 4096, std::chrono::milliseconds(50));
            if (events.empty()) {
                continue;
            }
            {
                std::lock_guard<std::mutex> lock(mutex);
                for (const auto& event : events) {
                    if (event->hasValidData()) {
                        account.take(event->getData()->getSample_id());
                    }
                }
            }
            changed.notify_all();
        }
    }

    orlo::dabo::ps::Subscriber<Sample>& subscriber;
    std::atomic<bool> stopping{false};
    std::mutex mutex;
    std::condition_variable changed;
    SequenceAccount account;
    std::thread thread;
};

}  // namespace lumo::soak
