#pragma once

#include <stdexcept>
#include <tuple>
#include <utility>

#include "dabo/util/DaboUtil.h"
#include "dabo/ps/queue/DataEventPredicateAsyncSubscription_impl.h"
#include "dabo/ps/queue/QueuedSubscriberImpl.h"
#include "dabo/ps/queue/QueuedSubscription_impl.h"

namespace orlo::dabo::ps::queue::detail {

namespace filtercheck {

/// Throws if `filter` and `other` could both want one event.
template <typename T>
void refuseOverlap(const DataEventFilter<T>& filter, const DataEventFilter<T>& other) {
    if (filter.instance && other.instance && !filter.instance->keyEquals(*other.instance)) {
        return;
    }
    if (other.instanceState != INSTANCE_ANY && filter.instanceState != INSTANCE_ANY &&
        other.instanceState != filter.instanceState) {
        return;
    }
    if (filter.instanceEvents.empty() || other.instanceEvents.empty()) {
        throw std::runtime_error("filter intersection");
    }
    for (InstanceEvent event : filter.instanceEvents) {
        if (other.instanceEvents.count(event) != 0) {
            throw std::runtime_error("filter intersection");
        }
    }
}

}  // namespace filtercheck

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::filterCheck(const DataEventFilter<T>& filter) {
    if (subscriptions.empty() && predicates.empty()) {
        return;
    }
    // A filter that wants everything cannot share the subscriber with anyone.
    if (!filter.instance && filter.instanceState == INSTANCE_ANY && filter.instanceEvents.size() == 3) {
        throw std::runtime_error("filter intersection");
    }
    for (const auto& entry : subscriptions) {
        filtercheck::refuseOverlap(filter, std::get<1>(entry.second));
    }
    for (const auto& entry : predicates) {
        const std::unique_ptr<DataEventFilter<T>> other = entry.second->getFilter();
        if (other) {
            filtercheck::refuseOverlap(filter, *other);
        }
    }
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriberImpl<T, ST>::subscribe(const DataEventFilter<T>& filter,
                                                                     Listener callback) {
    stateCheck();
    std::lock_guard<std::mutex> lock(queueMutex);
    filterCheck(filter);
    const std::string id = orlo::dabo::util::newUUID();
    // Nothing queued is looked at now: poll serves this callback.
    subscriptions.emplace(id, SubscriptionEntry<T>(id, filter, std::move(callback)));
    return std::make_unique<SyncQueuedSubscription<T, ST>>(id, this->shared_from_this());
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriberImpl<T, ST>::subscribeAsync(const DataEventFilter<T>& filter,
                                                                          Listener listener) {
    stateCheck();
    std::shared_ptr<DataEventPredicate<T, ST>> predicate =
        std::make_shared<DataEventPredicateAsyncSubscriptionListener<T, ST>>(filter, std::move(listener), *this);
    std::lock_guard<std::mutex> lock(queueMutex);
    return asyncSubscriptionInternal(filter, predicate);
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriberImpl<T, ST>::subscribeAsync(const DataEventFilter<T>& filter,
                                                                          Notifier notifier) {
    stateCheck();
    // Only listenerMutex: the notifier may read from its backlog call, which
    // takes queueMutex.
    std::lock_guard<std::mutex> lock(listenerMutex);
    std::shared_ptr<DataEventPredicate<T, ST>> predicate =
        std::make_shared<DataEventPredicateAsyncSubscriptionNotifier<T, ST>>(filter, std::move(notifier), *this);
    return asyncSubscriptionInternal(filter, predicate);
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriberImpl<T, ST>::asyncSubscriptionInternal(
    const DataEventFilter<T>& filter, std::shared_ptr<DataEventPredicate<T, ST>>& predicate) {
    const std::string id = orlo::dabo::util::newUUID();
    filterCheck(filter);
    purgeExpired(orlo::dabo::util::currentTimeMillis());
    // The backlog first: a listener takes every queued match, a notifier is
    // told once about the first.
    internalReadQueue(*predicate);
    predicates.emplace(id, predicate);
    return std::make_unique<AsyncQueuedSubscription<T, ST>>(id, this->shared_from_this());
}

}  // namespace orlo::dabo::ps::queue::detail
