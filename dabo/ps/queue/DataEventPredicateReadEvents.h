#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "dabo/ps/queue/DataEventPredicate.h"

namespace orlo::dabo::ps::queue::detail {

/// Collects matching events for readDataEvents while it walks the queued
/// events. Lives on the reader's stack; refers to the reader's frame.
template <typename T, typename ST>
class DataEventPredicateReadEvents : public DataEventPredicate<T, ST> {
public:
    DataEventPredicateReadEvents(const DataEventFilter<T>& filter,
                                 std::vector<std::shared_ptr<DataEvent<T>>>& results, unsigned long maxCount,
                                 std::atomic<unsigned long>& counter);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    /// Takes `event` if it matches; returns the new count, or 0 if not taken.
    unsigned long collect(const std::shared_ptr<DataEvent<T>>& event);

    const DataEventFilter<T>& filter;
    std::vector<std::shared_ptr<DataEvent<T>>>& results;
    unsigned long maxCount;
    std::atomic<unsigned long>& counter;
};

/// The same collector registered for new samples while readDataEvents waits;
/// it wakes the reader when it has collected enough.
template <typename T, typename ST>
class DataEventPredicateReadEventsListener : public DataEventPredicateReadEvents<T, ST> {
public:
    DataEventPredicateReadEventsListener(const DataEventFilter<T>& filter,
                                         std::vector<std::shared_ptr<DataEvent<T>>>& results,
                                         unsigned long maxCount, std::atomic<unsigned long>& counter,
                                         std::mutex& waitMutex, std::condition_variable& waitCondition);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    // Carried for symmetry with the poll listener; the wake-up does not take it.
    std::mutex& waitMutex;
    std::condition_variable& waitCondition;
};

}  // namespace orlo::dabo::ps::queue::detail
