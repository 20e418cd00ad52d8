#pragma once

#include <functional>
#include <list>
#include <memory>

#include "dabo/ps/queue/DataEventImpl.h"

namespace orlo::dabo::ps::queue {

/// The queued events of one instance of a keyed topic, and what the engine
/// knows about that instance. Owned by the subscriber's instance map; data
/// events refer to it weakly.
template <typename T, typename ST>
class InstanceQueue : public std::enable_shared_from_this<InstanceQueue<T, ST>> {
public:
    /// The instance's events, oldest first.
    std::list<std::shared_ptr<DataEventImpl<T, ST>>> events;
    unsigned long maxEvents = 0;
    /// Writer generation of the latest sample; 0 means that the instance has no writer.
    long writerGeneration = 0;
    /// Set when expiry times are kept; nothing calls it.
    std::function<void()> deadlineCallback;
    /// When the next sample is due, milliseconds since the epoch.
    long deadlineExpiry = 0;
    /// The instance's key, taken from the sample that created the queue.
    std::unique_ptr<T> key;
};

}  // namespace orlo::dabo::ps::queue
