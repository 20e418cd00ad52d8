#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "lumotypes/host/Payload.h"

namespace lumo::demo {

/// Publishes the probe `probeBytes` until `subscriber` has received one, so
/// that nothing the demo counts is sent before the subscriber has joined.
/// Probes still on their way afterwards are recognised by their bytes and not
/// counted. False if no probe arrived within `limit`.
template <typename T>
bool awaitJoin(orlo::dabo::ps::Publisher<T>& publisher, orlo::dabo::ps::Subscriber<T>& subscriber,
               const std::string& probeBytes, std::chrono::milliseconds limit) {
    auto probe = publisher.createDataEntity();
    if (!lumotypes::host::fromBytes(*probe, probeBytes)) {
        return false;
    }
    const orlo::dabo::ps::DataEventFilter<T> anything;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        publisher.publish(*probe, std::chrono::milliseconds(1000));
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        if (subscriber.readDataEvents(anything, events, 1, std::chrono::milliseconds(50)) > 0) {
            return true;
        }
    }
    return false;
}

}  // namespace lumo::demo
