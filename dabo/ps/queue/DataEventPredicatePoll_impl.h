#pragma once

#include <cassert>

#include "dabo/ps/queue/DataEventPredicatePoll.h"
#include "dabo/ps/queue/DataEventPredicate_impl.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
DataEventPredicatePoll<T, ST>::DataEventPredicatePoll(unsigned long maxCount, std::atomic<unsigned long>& counter,
                                                      const SubscriptionMap<T>& subscriptions,
                                                      Subscriber<T>& subscriber)
    : maxCount(maxCount), counter(counter), subscriptions(subscriptions), subscriber(subscriber) {}

template <typename T, typename ST>
PredicateOutcome DataEventPredicatePoll<T, ST>::matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) {
    assert(event && "only real events are offered");
    const SubscriptionEntry<T>* entry = findSubscription(*this, subscriptions, *event);
    if (!entry) {
        return NOT_MATCHED;
    }
    // A failing callback is the host's business; the event counts as served.
    try {
        std::get<2>(*entry)(subscriber, *event);
    } catch (...) {
    }
    return ++counter == maxCount ? CONSUMED_LAST : CONSUMED;
}

template <typename T, typename ST>
DataEventPredicatePollListener<T, ST>::DataEventPredicatePollListener(
    unsigned long maxCount, std::atomic<unsigned long>& counter, const SubscriptionMap<T>& subscriptions,
    Subscriber<T>& subscriber, std::mutex& waitMutex, std::condition_variable& waitCondition,
    PendingCallbacks<T>& pendingCallbacks)
    : DataEventPredicatePoll<T, ST>(maxCount, counter, subscriptions, subscriber),
      waitMutex(waitMutex),
      waitCondition(waitCondition),
      pendingCallbacks(pendingCallbacks) {}

template <typename T, typename ST>
PredicateOutcome DataEventPredicatePollListener<T, ST>::matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) {
    assert(event && "only real events are offered");
    // This runs on the delivering thread: the host's callback must not run
    // here, so the event goes to the poller together with its callback.
    const SubscriptionEntry<T>* entry = findSubscription(*this, this->subscriptions, *event);
    if (!entry) {
        return NOT_MATCHED;
    }
    const unsigned long count = ++this->counter;
    {
        std::lock_guard<std::mutex> lock(waitMutex);
        pendingCallbacks.emplace_back(event, std::get<2>(*entry));
    }
    waitCondition.notify_one();
    return count == this->maxCount ? CONSUMED_FINISHED : CONSUMED;
}

}  // namespace orlo::dabo::ps::queue::detail
