#pragma once

#include <functional>
#include <memory>

#include "dabo/ps/queue/DataEventPredicate.h"

namespace orlo::dabo::ps::queue::detail {

/// The predicate of subscribeAsync with a listener: the listener receives
/// each matching sample and consumes it, so no read ever sees it.
template <typename T, typename ST>
class DataEventPredicateAsyncSubscriptionListener : public DataEventPredicate<T, ST> {
public:
    DataEventPredicateAsyncSubscriptionListener(const DataEventFilter<T>& filter,
                                                std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback,
                                                Subscriber<T>& subscriber);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    DataEventFilter<T> filter;
    std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback;
    Subscriber<T>& subscriber;
};

/// The predicate of subscribeAsync with a notifier: the notifier is told that
/// something is there, and the sample stays queued for whoever reads it.
template <typename T, typename ST>
class DataEventPredicateAsyncSubscriptionNotifier : public DataEventPredicate<T, ST> {
public:
    DataEventPredicateAsyncSubscriptionNotifier(const DataEventFilter<T>& filter,
                                                std::function<void(Subscriber<T>&)> callback,
                                                Subscriber<T>& subscriber);

    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) override;

protected:
    DataEventFilter<T> filter;
    std::function<void(Subscriber<T>&)> callback;
    Subscriber<T>& subscriber;
};

}  // namespace orlo::dabo::ps::queue::detail
