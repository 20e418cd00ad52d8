#pragma once

#include <cassert>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "dabo/ps/queue/DataEventPredicateAsyncSubscription.h"
#include "dabo/ps/queue/DataEventPredicate_impl.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
DataEventPredicateAsyncSubscriptionListener<T, ST>::DataEventPredicateAsyncSubscriptionListener(
    const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback,
    Subscriber<T>& subscriber)
    : filter(filter), callback(std::move(callback)), subscriber(subscriber) {}

template <typename T, typename ST>
PredicateOutcome DataEventPredicateAsyncSubscriptionListener<T, ST>::matchAndProcess(
    const std::shared_ptr<DataEvent<T>>& event) {
    assert(event && "only real events are offered");
    if (!this->matches(*event, filter)) {
        return NOT_MATCHED;
    }
    // The engine has no logger: a failing listener is reported on the
    // console, and the delivering thread goes on.
    try {
        callback(subscriber, *event);
    } catch (const std::exception& e) {
        std::cerr << "Exception occured in listener: " << e.what() << std::endl;
    } catch (...) {
        std::cerr << "Exception occurred in listener \n";
    }
    return CONSUMED;
}

template <typename T, typename ST>
DataEventPredicateAsyncSubscriptionNotifier<T, ST>::DataEventPredicateAsyncSubscriptionNotifier(
    const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&)> callback, Subscriber<T>& subscriber)
    : filter(filter), callback(std::move(callback)), subscriber(subscriber) {}

template <typename T, typename ST>
PredicateOutcome DataEventPredicateAsyncSubscriptionNotifier<T, ST>::matchAndProcess(
    const std::shared_ptr<DataEvent<T>>& event) {
    assert(event && "only real events are offered");
    if (!this->matches(*event, filter)) {
        return NOT_MATCHED;
    }
    // Only runtime errors are reported here; anything else unwinds through
    // whoever offered the event.
    try {
        callback(subscriber);
    } catch (const std::runtime_error& e) {
        std::cerr << "Exception occurred in notifier: " << e.what() << "\n";
    }
    return MATCHED_KEEP;
}

}  // namespace orlo::dabo::ps::queue::detail
