#pragma once

// HokuTopicIn samples numbered by sample_id, published and read until each
// one expected has arrived: what the security tests check of a well-behaved
// subscriber.

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "lumotypes/Lumotypes.h"

namespace lumo::security {

/// Publishes the samples numbered `first` to `first + count - 1`.
inline void publishSampleIds(orlo::dabo::ps::Publisher<lumotypes::HokuTopicIn>& publisher, std::uint32_t first,
                             std::uint32_t count) {
    auto sample = publisher.createDataEntity();
    sample->setQuality(true);
    sample->setSim(false);
    sample->setTimestamp_utc(1.0);
    for (std::uint32_t id = first; id < first + count; ++id) {
        sample->setSample_id(id);
        publisher.publish(*sample, std::chrono::milliseconds(1000));
    }
}

/// Reads until the samples numbered `first` to `first + count - 1` have all
/// arrived; false if any is missing after 30 s.
inline bool everySampleIdArrives(orlo::dabo::ps::Subscriber<lumotypes::HokuTopicIn>& subscriber, std::uint32_t first,
                                 std::uint32_t count) {
    std::set<std::uint32_t> missing;
    for (std::uint32_t id = first; id < first + count; ++id) {
        missing.insert(id);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!missing.empty() && std::chrono::steady_clock::now() < deadline) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::HokuTopicIn>>> events;
        subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<lumotypes::HokuTopicIn>(), events, 1000,
                                  std::chrono::milliseconds(100));
        for (const auto& event : events) {
            missing.erase(event->getData()->getSample_id());
        }
    }
    return missing.empty();
}

}  // namespace lumo::security
