#pragma once

#include <list>
#include <memory>

#include "dabo/ps/DataEvent.h"

namespace orlo::dabo::ps::queue {

template <typename T, typename ST>
class InstanceQueue;

namespace detail {
template <typename T, typename ST>
class QueuedSubscriberImpl;
}  // namespace detail

/// The engine's data event: one sample, its source time and what it means for
/// its instance. An event stands in up to two lists at once, the subscriber's
/// global list and its instance's queue, and carries its own position in each
/// so that it can be unlinked from either without a search.
template <typename T, typename ST>
class DataEventImpl : public DataEvent<T> {
public:
    using EventList = std::list<std::shared_ptr<DataEventImpl<T, ST>>>;

    /// `instanceQueue` may be null: an unkeyed sample belongs to no instance.
    DataEventImpl(std::shared_ptr<T> data, double sourceTimestamp, bool validData,
                  std::unique_ptr<InstanceState> instanceState, InstanceEvent instanceEvent,
                  const std::shared_ptr<InstanceQueue<T, ST>>& instanceQueue);

    bool hasValidData() const override;
    const std::shared_ptr<T>& getData() const override;
    /// Follows the live instance while its queue exists, else reports what was
    /// frozen into the event. Takes no lock.
    InstanceState getInstanceState() const override;
    InstanceEvent getInstanceEvent() const override;
    double getSourceTimestamp() const override;

    /// Unlinks the event from its instance's queue and freezes its state.
    /// Called with the subscriber's queue mutex held.
    void removeFromInstanceQueue();

private:
    friend class detail::QueuedSubscriberImpl<T, ST>;

    std::weak_ptr<InstanceQueue<T, ST>> instanceQueue;
    // Heap cells, so that null can say "not linked": a list iterator has no such value.
    std::unique_ptr<typename EventList::iterator> instancePosition;
    std::unique_ptr<typename EventList::iterator> queuePosition;
    double sourceTimestamp;
    std::shared_ptr<T> data;
    bool validData;
    std::unique_ptr<InstanceState> instanceState;
    InstanceEvent instanceEvent;
};

}  // namespace orlo::dabo::ps::queue
