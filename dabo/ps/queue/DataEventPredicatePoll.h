#pragma once

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <tuple>

#include "dabo/ps/queue/DataEventPredicate.h"

namespace orlo::dabo::ps::queue::detail {

/// Events that a waiting poll has taken and whose callbacks it still has to run.
template <typename T>
using PendingCallbacks = std::list<std::tuple<std::shared_ptr<DataEvent<T>>, SubscriptionCallback<T>>>;

/// Serves queued events to the callbacks of subscribe while poll walks the
/// queue, on the polling thread. Lives on the poller's stack.
template <typename T, typename ST>
class DataEventPredicatePoll : public DataEventPredicate<T, ST> {
public:
    DataEventPredicatePoll(unsigned long maxCount, std::atomic<unsigned long>& counter,
                           const SubscriptionMap<T>& subscriptions, Subscriber<T>& subscriber);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    unsigned long maxCount;
    std::atomic<unsigned long>& counter;
    const SubscriptionMap<T>& subscriptions;
    Subscriber<T>& subscriber;
};

/// Registered while poll waits: takes matching new samples on the delivering
/// thread and hands them to the poller, who runs the callbacks on its own.
template <typename T, typename ST>
class DataEventPredicatePollListener : public DataEventPredicatePoll<T, ST> {
public:
    DataEventPredicatePollListener(unsigned long maxCount, std::atomic<unsigned long>& counter,
                                   const SubscriptionMap<T>& subscriptions, Subscriber<T>& subscriber,
                                   std::mutex& waitMutex, std::condition_variable& waitCondition,
                                   PendingCallbacks<T>& pendingCallbacks);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    std::mutex& waitMutex;
    std::condition_variable& waitCondition;
    PendingCallbacks<T>& pendingCallbacks;
};

}  // namespace orlo::dabo::ps::queue::detail
