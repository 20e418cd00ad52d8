#pragma once

#include <cassert>

#include "dabo/ps/queue/DataEventPredicateReadEvents.h"
#include "dabo/ps/queue/DataEventPredicate_impl.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
DataEventPredicateReadEvents<T, ST>::DataEventPredicateReadEvents(
    const DataEventFilter<T>& filter, std::vector<std::shared_ptr<DataEvent<T>>>& results, unsigned long maxCount,
    std::atomic<unsigned long>& counter)
    : filter(filter), results(results), maxCount(maxCount), counter(counter) {}

template <typename T, typename ST>
unsigned long DataEventPredicateReadEvents<T, ST>::collect(const std::shared_ptr<DataEvent<T>>& event) {
    assert(event && "only real events are offered");
    if (!this->matches(*event, filter)) {
        return 0;
    }
    results.push_back(event);
    return ++counter;
}

template <typename T, typename ST>
PredicateOutcome DataEventPredicateReadEvents<T, ST>::matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) {
    const unsigned long count = collect(event);
    if (count == 0) {
        return NOT_MATCHED;
    }
    return count == maxCount ? CONSUMED_LAST : CONSUMED;
}

template <typename T, typename ST>
DataEventPredicateReadEventsListener<T, ST>::DataEventPredicateReadEventsListener(
    const DataEventFilter<T>& filter, std::vector<std::shared_ptr<DataEvent<T>>>& results, unsigned long maxCount,
    std::atomic<unsigned long>& counter, std::mutex& waitMutex, std::condition_variable& waitCondition)
    : DataEventPredicateReadEvents<T, ST>(filter, results, maxCount, counter),
      waitMutex(waitMutex),
      waitCondition(waitCondition) {}

template <typename T, typename ST>
PredicateOutcome DataEventPredicateReadEventsListener<T, ST>::matchAndProcess(
    const std::shared_ptr<DataEvent<T>>& event) {
    const unsigned long count = this->collect(event);
    if (count == 0) {
        return NOT_MATCHED;
    }
    if (count == this->maxCount) {
        waitCondition.notify_one();
        return CONSUMED_FINISHED;
    }
    return CONSUMED;
}

}  // namespace orlo::dabo::ps::queue::detail
